// The one request routine: send a message, receive the reply, examine both in a fixed order.
#ifndef CLIENT_EXCHANGE_H
#define CLIENT_EXCHANGE_H

#include "client/message.h"
#include "log/report.h"

namespace vexo {

// Sends a request that was built by begin_message(), receives a reply even when that failed, and
// examines both: 0, the controller's status, or VEXO_ERROR_TRANSPORT.
int32_t request(Caller caller, const Registration& handle, wire::MessageWriter message,
                Purpose purpose = Purpose::request);

// ---- Its parts, for requests that differ.

// What the two transport calls gave.
struct Transfer {
    long sent;
    Received received;
};
Transfer transfer(const Registration& handle, wire::MessageWriter message,
                  Purpose purpose = Purpose::request);

// Reports a failed transfer.
bool transfer_failed(Caller caller, Transfer result);

// Reports a status of the controller other than 0. Returns the status.
int32_t examine_status(Caller caller, int32_t status);

}  // namespace vexo

#endif
