// Failures: a code, a cause and a remedy, a line each.
#ifndef SESSION_ERROR_H
#define SESSION_ERROR_H

#include <cstdarg>
#include <span>

#include "session/session.h"

namespace vexo::session {

// A failure with the remedy that goes with its code; the cause is formatted.
[[gnu::format(printf, 2, 3)]] VexoSessionError failure(int32_t code, const char* cause, ...);
[[gnu::format(printf, 2, 3)]] VexoSessionError refusal(uint8_t status, const char* cause, ...);
// Of a request, by its reply: "the controller refuses `what` with the status ...".
VexoSessionError refused(std::span<const uint8_t> reply, const char* what);
// Of a system call: the system's text follows the cause.
VexoSessionError system_failure(int32_t code, const char* what, int error_number);

// Keeps a failure for vexo_session_error() of this thread, and returns its code.
int32_t tell(const VexoSessionError& error);
[[gnu::format(printf, 2, 3)]] int32_t tell(int32_t code, const char* cause, ...);

// For a handle that is closed, and for a null pointer.
int32_t tell_closed();
int32_t tell_null(const char* what);

}  // namespace vexo::session

#endif
