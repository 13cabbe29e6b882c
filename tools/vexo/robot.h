// A session with the controller that the options name, with failures as the tool tells them.
#ifndef TOOLS_VEXO_ROBOT_H
#define TOOLS_VEXO_ROBOT_H

#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "session/session.h"
#include "tools/vexo/commands.h"

namespace tool {

// A structure of the session's interface, empty but for its size.
template <typename T>
T sized() {
    T value{};
    value.size = sizeof value;
    return value;
}

// The code of a session's result for programs: "timed_out".
std::string code_of(int32_t result);

Failure failure_of(const VexoSessionError& error);

// Passes results that are not negative on; for others throws what the session says of them.
int32_t checked(int32_t result);

struct CloseSession {
    void operator()(VexoSession* session) const { vexo_session_close(session); }
};
using Session = std::unique_ptr<VexoSession, CloseSession>;

// Makes a call that waits for the controller, with its result checked. When the user interrupts, it
// closes the session, which ends the call, and throws.
int32_t interruptible(VexoSession* session, const std::function<int32_t()>& call);

// Opens a session and waits until it is ready, for --timeout at most. A controller that refuses
// ends the waiting at once; one that is not there may still come.
Session open_session(const Context& context, bool acknowledge = true);

int64_t limit_us(const Context& context);

VexoSessionStatus status_of(VexoSession* session);

// The entries of one list.
std::vector<VexoSessionVariable> entries_of(VexoSession* session, uint32_t kind);

// Throws unless each name stands in one of the lists `kinds`.
void require_names(VexoSession* session, uint32_t kinds, const std::vector<std::string>& names);

// "output", "input" or "method".
const char* kind_name(uint32_t kind);

// "f64x6" and so on; "-" for a method.
std::string type_of(const VexoSessionVariable& entry);

}  // namespace tool

#endif
