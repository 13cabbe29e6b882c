#include "client/exchange.h"

#include <cstdio>

#include "client/cancellable_wait.h"
#include "client/vexo.h"
#include "net/exchange_socket.h"

namespace vexo {

namespace {

constexpr int kNoTimeout = -1;

}  // namespace

MessageWriter begin_request(Dataspace& dataspace, char type) {
    return {dataspace.request, sizeof dataspace.request, type};
}

MessageReader reply_payload(const Dataspace& dataspace) {
    return {dataspace.response, sizeof dataspace.response, kReplyPayload};
}

int receive_reply(const Registration& handle, int socket, uint8_t* buffer, unsigned capacity) {
    return wait_cancellable({handle, handle.hold()},
                            [&] { return socket_recv(socket, buffer, capacity, kNoTimeout); });
}

Transfer transfer(const Registration& handle, int socket, MessageWriter& message) {
    const auto length = static_cast<unsigned>(message.finish());
    const int sent = socket_send(socket, handle->request, length);
    const int received = receive_reply(handle, socket, handle->response, kReadSize);
    return {sent, received};
}

bool transfer_failed(Caller caller, Transfer result) {
    if (result.sent < 0) {
        report(caller, "%s send error", caller.function);
        return true;
    }
    if (result.received <= 0) {
        char printed[128];
        std::snprintf(printed, sizeof printed, "%s recv error", caller.function);
        report_as(caller, printed, "%s recv error: %d", caller.function, result.received);
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

int32_t request(Caller caller, const Registration& handle, int socket, MessageWriter& message) {
    if (transfer_failed(caller, transfer(handle, socket, message))) {
        return VEXO_ERROR_TRANSPORT;
    }
    return examine_status(caller, handle->response[kStatusOffset]);
}

}  // namespace vexo
