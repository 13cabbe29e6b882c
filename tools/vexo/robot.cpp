#include "tools/vexo/robot.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

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

// Closes a session when the user interrupts while an object of this lives.
class Interrupter {
public:
    explicit Interrupter(VexoSession* session)
        : event_(eventfd(0, EFD_CLOEXEC)), thread_([this, session] { watch(session); }) {}
    ~Interrupter() {
        eventfd_write(event_, 1);
        thread_.join();
        close(event_);
    }
    Interrupter(const Interrupter&) = delete;
    Interrupter& operator=(const Interrupter&) = delete;

private:
    void watch(VexoSession* session) const {
        pollfd events[] = {{event_, POLLIN, 0}, {interrupt_descriptor(), POLLIN, 0}};
        while (poll(events, std::size(events), -1) < 0) {
        }
        if (events[1].revents != 0) {
            vexo_session_close(session);
        }
    }

    int event_;
    std::thread thread_;
};

// A name of another kind than is wanted here.
Failure wrong_kind(const VexoSessionVariable& entry, uint32_t wanted) {
    const std::string name = entry.name;
    const std::string is = '"' + name + "\" is " +
                           (entry.kind == VEXO_SESSION_METHOD   ? "a method"
                            : entry.kind == VEXO_SESSION_OUTPUT ? "an output"
                                                                : "an input");
    if (entry.kind == VEXO_SESSION_METHOD) {
        return Failure(Exit::failed, "wrong_kind", is + ", and has no value",
                       "`vexo call " + name + "` calls it");
    }
    if (wanted == VEXO_SESSION_METHOD) {
        return Failure(
            Exit::failed, "wrong_kind", is + ", and cannot be called",
            "`vexo read " + name + "` shows its value, `vexo list methods` what to call");
    }
    return Failure(Exit::failed, "wrong_kind",
                   is + ", which the controller sends and does not take",
                   "`vexo list inputs` shows what can be written");
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
    failure.system = error.system;
    // The names that are nearest to an unknown one are in its remedy.
    failure.from_session = error.code != VEXO_SESSION_UNKNOWN_NAME;
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

int32_t interruptible(VexoSession* session, const std::function<int32_t()>& call) {
    int32_t result = 0;
    {
        const Interrupter interrupter(session);
        result = call();
    }
    if (result == VEXO_SESSION_CLOSED) {
        throw_if_interrupted();
    }
    return checked(result);
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

void require_names(VexoSession* session, uint32_t kinds, const std::vector<std::string>& names) {
    constexpr uint32_t kAny = VEXO_SESSION_OUTPUT | VEXO_SESSION_INPUT | VEXO_SESSION_METHOD;
    auto entry = sized<VexoSessionVariable>();
    if (const VexoSessionStatus status = status_of(session);
        status.outputs + status.inputs + status.methods == 0) {
        throw Failure(Exit::failed, "unknown_name", "the controller's catalogue is empty",
                      "restart the controller, or see whether its configuration is loaded");
    }
    for (const std::string& name : names) {
        if (vexo_session_find(session, kinds, name.c_str(), &entry) == VEXO_SESSION_UNKNOWN_NAME &&
            vexo_session_find(session, kAny, name.c_str(), &entry) == VEXO_SESSION_OK) {
            throw wrong_kind(entry, kinds);
        }
        checked(vexo_session_find(session, kinds, name.c_str(), &entry));
    }
}

const char* kind_name(uint32_t kind) {
    return kind == VEXO_SESSION_OUTPUT ? "output" : kind == VEXO_SESSION_INPUT ? "input" : "method";
}

std::string type_of(const VexoSessionVariable& entry) {
    return entry.kind == VEXO_SESSION_METHOD ? "-" : vexo_session_type_name(entry.type);
}

}  // namespace tool
