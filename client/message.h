// The one way of a message: it is built in the handle's request buffer, goes out over TCP or in a
// raw frame, and its answer comes into the response buffer.
#ifndef CLIENT_MESSAGE_H
#define CLIENT_MESSAGE_H

#include <span>

#include "client/cancellable_wait.h"
#include "client/registry.h"
#include "wire/message.h"

namespace vexo {

constexpr size_t kReadSize = 1400;  // the most that one receive asks for

// What a message is for. Which way it goes depends on that and on the negotiated version.
enum class Purpose {
    request,          // port 2295
    control_request,  // port 2297
    input_package,    // port 2295, or a frame
    set_point,        // port 2297, or a frame
};

// Where a message is built: in the request buffer, behind room for a frame's header where there is
// to be one. Empty when the raw endpoint has none to give, which is reported.
std::span<uint8_t> begin_message(Caller caller, Dataspace& dataspace, Purpose purpose);

// Sends the message that was built there. Returns a negative number on a failure.
long send_message(Dataspace& dataspace, Purpose purpose, std::span<const uint8_t> message);

// What a receive gave: as socket_recv(), or the length word of a frame's message.
struct Received {
    int result;
    bool failed;  // a connection that the controller has closed is a failure, too
};

// Receives up to `into.size()` bytes that answer a request, without a time limit. `into` is in the
// response buffer.
Received receive_reply(const Registration& handle, Purpose purpose, std::span<uint8_t> into);

// Receives the acknowledgement of a set-point: over TCP within 5 ms; from a frame whenever it comes
// or the handle ends, unless none was agreed.
Received receive_acknowledgement(const HeldWhileWaiting& held);

// The response buffer, to its end and not to that of what was received: a short reply is not
// detected, and what the buffer held before shows through.
inline std::span<const uint8_t> response(const Dataspace& dataspace) {
    return dataspace.response;
}

}  // namespace vexo

#endif
