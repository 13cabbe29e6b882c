#include "client/message.h"

#include <semaphore.h>

#include "base/racing_copy.h"
#include "base/retry.h"
#include "log/report.h"
#include "net/exchange_socket.h"
#include "net/raw_socket.h"

namespace vexo {

namespace {

constexpr int kNoTimeout = -1;
constexpr int kAcknowledgementMicroseconds = 5000;

// Whether room for a frame's header precedes a message. This and the next question differ on
// purpose where nothing was negotiated (version word 0): an input package then goes over TCP, while
// a set-point wants a raw endpoint. A word with its top bit set counts as negative for inputs.
bool has_frame_header(const Dataspace& dataspace, Purpose purpose) {
    const uint32_t version = dataspace.version_word;
    switch (purpose) {
        case Purpose::input_package:
            return static_cast<int32_t>(version) > 2;
        case Purpose::set_point:
            return version != 1 && version != 2;
        default:
            return false;
    }
}

// Whether a message goes in a raw frame; else over TCP, with what precedes it.
bool goes_in_a_frame(const Dataspace& dataspace, Purpose purpose) {
    const bool cyclic = purpose == Purpose::input_package || purpose == Purpose::set_point;
    return cyclic && (dataspace.version_word & wire::kVersionRaw) != 0;
}

wire::FrameCode frame_code(Purpose purpose) {
    return purpose == Purpose::set_point ? wire::FrameCode::set_point
                                         : wire::FrameCode::input_package;
}

int socket_of(const Dataspace& dataspace, Purpose purpose) {
    const bool control = purpose == Purpose::control_request || purpose == Purpose::set_point;
    return control ? dataspace.control_socket : dataspace.io_socket;
}

// Waits until the receive thread has stored a reply, or the handle comes to its end.
Received wait_for_frame(const HeldWhileWaiting& held) {
    sem_t* reply = &held.handle->reply;
    wait_cancellable(held,
                     [reply] { return retry_interrupted([reply] { return sem_wait(reply); }); });
    if (held.handle.state().closing()) {
        return {VEXO_SOCKET_ERROR, true};
    }
    return {racing_u16(held.handle->response), false};
}

}  // namespace

std::span<uint8_t> begin_message(Caller caller, Dataspace& dataspace, Purpose purpose) {
    const std::span<uint8_t> buffer(dataspace.request);
    if (!has_frame_header(dataspace, purpose)) {
        return buffer;
    }
    uint8_t* position = buffer.data();
    const int header = socket_raw_applysendbuf(dataspace.raw_socket, &position);
    if (header < 0) {
        report(caller, "%s socket_raw_applysendbuf error %d", caller.function, header);
        return {};
    }
    return buffer.subspan(static_cast<size_t>(header));
}

long send_message(Dataspace& dataspace, Purpose purpose, std::span<const uint8_t> message) {
    const auto total = message.data() + message.size() - dataspace.request;
    if (!goes_in_a_frame(dataspace, purpose)) {
        return socket_send(socket_of(dataspace, purpose), dataspace.request,
                           static_cast<unsigned>(total));
    }
    if (purpose == Purpose::set_point) {
        socket_raw_set_dstmac(dataspace.raw_socket, dataspace.controller_mac);
    }
    return socket_raw_sendto(dataspace.raw_socket, static_cast<uint8_t>(frame_code(purpose)),
                             dataspace.request, static_cast<int>(total));
}

Received receive_reply(const Registration& handle, Purpose purpose, std::span<uint8_t> into) {
    const int socket = socket_of(*handle, purpose);
    const int result = wait_cancellable({handle, handle.hold()}, [&] {
        return socket_recv(socket, into.data(), static_cast<unsigned>(into.size()), kNoTimeout);
    });
    return {result, result <= 0};
}

Received receive_acknowledgement(const HeldWhileWaiting& held) {
    Dataspace& dataspace = *held.handle;
    if (goes_in_a_frame(dataspace, Purpose::set_point)) {
        return dataspace.nack == 0 ? wait_for_frame(held) : Received{0, false};
    }
    const int result = socket_recv(socket_of(dataspace, Purpose::set_point), dataspace.response,
                                   kReadSize, kAcknowledgementMicroseconds);
    return {result, result <= 0};
}

}  // namespace vexo
