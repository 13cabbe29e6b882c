#include "client/request_buffer.h"

#include "net/exchange_socket.h"
#include "net/raw_socket.h"

namespace vexo {

int reserve_frame_header(Caller caller, Dataspace& dataspace) {
    uint8_t* position = dataspace.request;
    const int header = socket_raw_applysendbuf(dataspace.raw_socket, &position);
    if (header < 0) {
        report(caller, "%s socket_raw_applysendbuf error %d", caller.function, header);
    }
    return header;
}

MessageWriter begin_request_behind(Dataspace& dataspace, int header, char type) {
    return {dataspace.request + header, sizeof dataspace.request - static_cast<size_t>(header),
            type};
}

long send_request(Dataspace& dataspace, int socket, uint8_t frame_code, size_t total) {
    if ((dataspace.version_word & kVersionRaw) != 0) {
        return socket_raw_sendto(dataspace.raw_socket, frame_code, dataspace.request,
                                 static_cast<int>(total));
    }
    return socket_send(socket, dataspace.request, static_cast<unsigned>(total));
}

}  // namespace vexo
