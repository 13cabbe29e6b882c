#include "client/exchange.h"

#include <cstdio>

#include "client/vexo.h"

namespace vexo {

int32_t request(Caller caller, const Registration& handle, wire::MessageWriter message,
                Purpose purpose) {
    if (transfer_failed(caller, transfer(handle, message, purpose))) {
        return VEXO_ERROR_TRANSPORT;
    }
    return examine_status(caller, wire::reply_status(response(*handle)));
}

Transfer transfer(const Registration& handle, wire::MessageWriter message, Purpose purpose) {
    const long sent = send_message(*handle, purpose, message.finish());
    return {sent, receive_reply(handle, purpose, std::span(handle->response).first(kReadSize))};
}

bool transfer_failed(Caller caller, Transfer result) {
    if (result.sent < 0) {
        report(caller, "%s send error", caller.function);
        return true;
    }
    if (result.received.failed) {
        char printed[128];
        std::snprintf(printed, sizeof printed, "%s recv error", caller.function);
        report_as(caller, printed, "%s recv error: %d", caller.function, result.received.result);
        return true;
    }
    return false;
}

int32_t examine_status(Caller caller, int32_t status) {
    if (status != 0) {
        report(caller, "%s Error: %d", caller.function, status);
    }
    return status;
}

}  // namespace vexo
