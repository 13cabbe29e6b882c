// Messages that travel over TCP or, behind a frame header, over the raw path.
#ifndef CLIENT_REQUEST_BUFFER_H
#define CLIENT_REQUEST_BUFFER_H

#include "client/dataspace.h"
#include "client/message.h"
#include "log/report.h"

namespace vexo {

// Asks the raw endpoint how much room its header takes in front of a message. Returns that, or a
// negative code, which is reported.
int reserve_frame_header(Caller caller, Dataspace& dataspace);

// A message `header` bytes into the request buffer.
MessageWriter begin_request_behind(Dataspace& dataspace, int header, char type);

// Sends `total` bytes of the request buffer: as a raw frame with the code `frame_code` when the raw
// path was negotiated, else over `socket`. Returns a negative number on a failure.
long send_request(Dataspace& dataspace, int socket, uint8_t frame_code, size_t total);

}  // namespace vexo

#endif
