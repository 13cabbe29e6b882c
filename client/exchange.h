// The one request routine: send a message, receive the reply, examine both in a fixed order.
#ifndef CLIENT_EXCHANGE_H
#define CLIENT_EXCHANGE_H

#include "client/message.h"
#include "client/registry.h"
#include "log/report.h"

namespace vexo {

constexpr unsigned kReadSize = 1400;  // the most that one receive asks for

// What the two transport calls of a request gave.
struct Transfer {
    int sent;
    int received;
};

// A message of this type at the start of the request buffer.
MessageWriter begin_request(Dataspace& dataspace, char type);

// A reader of the response buffer, at its payload. It reaches the end of the buffer, not of what
// was received: a short reply is not detected, and what the buffer held before shows through.
MessageReader reply_payload(const Dataspace& dataspace);

// socket_recv() without a time limit. The thread may be cancelled there.
int receive_reply(const Registration& handle, int socket, uint8_t* buffer, unsigned capacity);

// Sends the request, and receives a reply even when that failed.
Transfer transfer(const Registration& handle, int socket, MessageWriter& message);

// Reports a failed transfer. A connection that the controller has closed is a failure too.
bool transfer_failed(Caller caller, Transfer result);

// Reports a status of the controller other than 0. Returns the status.
int32_t examine_status(Caller caller, int32_t status);

// All of it: 0, the controller's status, or VEXO_ERROR_TRANSPORT.
int32_t request(Caller caller, const Registration& handle, int socket, MessageWriter& message);

}  // namespace vexo

#endif
