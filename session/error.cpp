#include "session/error.h"

#include <cstdio>
#include <cstring>

#include "session/structure.h"
#include "wire/message.h"

namespace vexo::session {

namespace {

thread_local VexoSessionError last{sizeof(VexoSessionError), 0, 0, 0, {}, {}};

struct Meaning {
    int32_t code;
    const char* name;
    const char* remedy;
};

constexpr Meaning kMeanings[] = {
    {VEXO_SESSION_OK, "ok", ""},
    {VEXO_SESSION_BAD_ARGUMENT, "bad argument", "Correct the call; session.h says what it takes."},
    {VEXO_SESSION_CLOSED, "closed", "Open it again, and use the new handle."},
    {VEXO_SESSION_TIMED_OUT, "timed out",
     "Give it longer; vexo_session_status() tells what the session last met."},
    {VEXO_SESSION_NOT_CONNECTED, "not connected",
     "Wait for the state ready with vexo_session_wait()."},
    {VEXO_SESSION_CUT, "cut", "Wait until the session is back, then decide whether to repeat it."},
    {VEXO_SESSION_REFUSED, "refused",
     "The controller's manual tells what this status means for the request."},
    {VEXO_SESSION_UNKNOWN_NAME, "unknown name",
     "Look the name up in the catalogue; capitals and underscores count."},
    {VEXO_SESSION_WRONG_TYPE, "wrong type", "Give the value in the type that the catalogue tells."},
    {VEXO_SESSION_NOT_SET, "not set", "Set every variable of these inputs again after a cut."},
    {VEXO_SESSION_BUSY, "busy", "Close the other one first."},
    {VEXO_SESSION_TOO_LARGE, "too large", "Choose fewer or smaller values, or give more room."},
    {VEXO_SESSION_CATALOGUE_CHANGED, "catalogue changed",
     "Close it and open it anew with what the catalogue holds now."},
    {VEXO_SESSION_NOT_PERMITTED, "not permitted",
     "Give the process the privilege (CAP_NET_RAW, CAP_SYS_NICE, or a limit of rtprio)."},
    {VEXO_SESSION_NO_INTERFACE, "no interface",
     "Name an Ethernet interface that is up (ip link tells)."},
    {VEXO_SESSION_NO_MEMORY, "no memory", "Close what is not needed, or keep fewer packages."},
    {VEXO_SESSION_SYSTEM, "system", "Look at the system's reason in the cause."},
    {VEXO_SESSION_OUT_OF_STEP, "out of step",
     "Make sure that this address and mode belong to a controller, and that nobody else uses it."},
    {VEXO_SESSION_UNREACHABLE, "unreachable",
     "Check address, cable and network, and that the controller is switched on."},
    {VEXO_SESSION_SILENT, "silent", "Check the cable and whether the controller still runs."},
    {VEXO_SESSION_NO_DATA, "no data", "Wait for the first package."},
};

const Meaning* meaning(int32_t code) {
    for (const Meaning& candidate : kMeanings) {
        if (candidate.code == code) {
            return &candidate;
        }
    }
    return nullptr;
}

VexoSessionError build(int32_t code, const char* cause, va_list values) {
    VexoSessionError error{};
    error.size = sizeof error;
    error.code = code;
    std::vsnprintf(error.cause, sizeof error.cause, cause, values);
    const Meaning* known = meaning(code);
    std::snprintf(error.remedy, sizeof error.remedy, "%s", known != nullptr ? known->remedy : "");
    return error;
}

}  // namespace

VexoSessionError failure(int32_t code, const char* cause, ...) {
    va_list values;
    va_start(values, cause);
    const VexoSessionError error = build(code, cause, values);
    va_end(values);
    return error;
}

VexoSessionError refusal(uint8_t status, const char* cause, ...) {
    va_list values;
    va_start(values, cause);
    VexoSessionError error = build(VEXO_SESSION_REFUSED, cause, values);
    va_end(values);
    error.status = status;
    return error;
}

VexoSessionError refused(std::span<const uint8_t> reply, const char* what) {
    const uint8_t status = wire::reply_status(reply);
    return refusal(status, "the controller refuses %s with the status %u", what, status);
}

VexoSessionError system_failure(int32_t code, const char* what, int error_number) {
    char text[128];
    VexoSessionError error =
        failure(code, "%s: %s", what, strerror_r(error_number, text, sizeof text));
    error.system = error_number;
    return error;
}

int32_t tell(const VexoSessionError& error) {
    last = error;
    return error.code;
}

int32_t tell(int32_t code, const char* cause, ...) {
    va_list values;
    va_start(values, cause);
    last = build(code, cause, values);
    va_end(values);
    return code;
}

int32_t tell_closed() {
    return tell(VEXO_SESSION_CLOSED, "the handle is closed, or never was one");
}

int32_t tell_null(const char* what) {
    return tell(VEXO_SESSION_BAD_ARGUMENT, "%s is null", what);
}

}  // namespace vexo::session

using namespace vexo::session;

extern "C" int32_t vexo_session_error(VexoSessionError* error) {
    return error != nullptr && give(error, last) ? VEXO_SESSION_OK : VEXO_SESSION_BAD_ARGUMENT;
}

extern "C" const char* vexo_session_result_name(int32_t result) {
    const Meaning* known = meaning(result);
    return known != nullptr ? known->name : "unknown";
}
