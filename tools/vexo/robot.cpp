#include "tools/vexo/robot.h"

#include <algorithm>
#include <chrono>

#include "tools/vexo/interrupt.h"

namespace tool {
namespace {

constexpr int64_t kSliceUs = 50'000;  // how late an interrupt may be noticed

Exit exit_of(int32_t result) {
    switch (result) {
        case VEXO_SESSION_TIMED_OUT:
        case VEXO_SESSION_NOT_CONNECTED:
        case VEXO_SESSION_CUT:
        case VEXO_SESSION_UNREACHABLE:
        case VEXO_SESSION_SILENT:
        case VEXO_SESSION_NO_DATA:
            return Exit::unreachable;
        case VEXO_SESSION_REFUSED:
            return Exit::refused;
        default:
            return Exit::failed;
    }
}

void refuse_other_sources(const Options& options) {
    if (!options.attach.empty() || !options.capture.empty()) {
        throw Failure(Exit::usage, "usage",
                      "This command takes no --attach and no --capture: it talks to the controller",
                      "leave the option out, and name the controller with --host");
    }
}

// What keeps the session from getting ready, once that will not pass by waiting.
void throw_if_hopeless(VexoSession* session) {
    const VexoSessionStatus status = status_of(session);
    if (status.error.code == VEXO_SESSION_REFUSED) {
        throw failure_of(status.error);
    }
}

void throw_if_interrupted() {
    if (interrupted()) {
        throw Failure(Exit::unreachable, "interrupted",
                      "Interrupted before the controller answered",
                      "give it more time, or see whether the address is right");
    }
}

void wait_until_ready(VexoSession* session, int64_t limit) {
    using std::chrono::steady_clock;
    const auto end = steady_clock::now() + std::chrono::microseconds(limit);
    int32_t result = VEXO_SESSION_TIMED_OUT;
    while (result == VEXO_SESSION_TIMED_OUT && steady_clock::now() < end) {
        throw_if_interrupted();
        const auto left =
            std::chrono::duration_cast<std::chrono::microseconds>(end - steady_clock::now());
        result = vexo_session_wait(session, VEXO_SESSION_STATE_READY,
                                   std::min<int64_t>(left.count(), kSliceUs));
        if (result == VEXO_SESSION_TIMED_OUT) {
            throw_if_hopeless(session);
        }
    }
    if (result == VEXO_SESSION_TIMED_OUT) {
        const VexoSessionStatus status = status_of(session);
        if (status.error.code != VEXO_SESSION_OK) {
            throw failure_of(status.error);
        }
    }
    checked(result);
}

}  // namespace

std::string code_of(int32_t result) {
    std::string code = vexo_session_result_name(result);
    std::replace(code.begin(), code.end(), ' ', '_');
    return code;
}

Failure failure_of(const VexoSessionError& error) {
    Failure failure(exit_of(error.code), code_of(error.code), error.cause, error.remedy);
    failure.controller_status = error.status;
    return failure;
}

int32_t checked(int32_t result) {
    if (result < 0) {
        auto error = sized<VexoSessionError>();
        vexo_session_error(&error);
        throw failure_of(error);
    }
    return result;
}

Session open_session(const Context& context, bool acknowledge) {
    const Options& options = context.options;
    refuse_other_sources(options);
    auto wanted = sized<VexoSessionOptions>();
    wanted.mode = static_cast<uint32_t>(options.mode);
    wanted.interface = options.raw.empty() ? nullptr : options.raw.c_str();
    wanted.no_acknowledge = acknowledge ? 0 : 1;
    VexoSession* session = nullptr;
    checked(vexo_session_open(options.host.c_str(), &wanted, &session));
    Session owner(session);
    wait_until_ready(session, limit_us(context));
    return owner;
}

int64_t limit_us(const Context& context) {
    return static_cast<int64_t>(context.options.timeout_s * 1e6);
}

VexoSessionStatus status_of(VexoSession* session) {
    auto status = sized<VexoSessionStatus>();
    checked(vexo_session_status(session, &status));
    return status;
}

std::vector<VexoSessionVariable> entries_of(VexoSession* session, uint32_t kind) {
    const VexoSessionStatus status = status_of(session);
    std::vector<VexoSessionVariable> entries(kind == VEXO_SESSION_OUTPUT  ? status.outputs
                                             : kind == VEXO_SESSION_INPUT ? status.inputs
                                                                          : status.methods,
                                             sized<VexoSessionVariable>());
    for (size_t i = 0; i < entries.size(); ++i) {
        checked(vexo_session_entry(session, kind, static_cast<uint32_t>(i), &entries[i]));
    }
    return entries;
}

const char* kind_name(uint32_t kind) {
    return kind == VEXO_SESSION_OUTPUT ? "output" : kind == VEXO_SESSION_INPUT ? "input" : "method";
}

std::string type_of(const VexoSessionVariable& entry) {
    return entry.kind == VEXO_SESSION_METHOD ? "-" : vexo_session_type_name(entry.type);
}

}  // namespace tool
