// Opening and closing sessions, and how they stand.
#include "session/session.h"

#include <arpa/inet.h>
#include <sched.h>

#include <cstdio>
#include <mutex>

#include "session/error.h"
#include "session/open_recipe.h"
#include "session/stream.h"
#include "session/structure.h"

using namespace vexo::session;

namespace {

constexpr Nanoseconds kLeave = 40 * kMillisecond;

CallOn<Robot> on(VexoSession* session) {
    return {session, HandleKind::session};
}

int32_t take_settings(const char* address, const VexoSessionOptions* options, Settings& settings) {
    VexoSessionOptions taken;
    if (!take(taken, options)) {
        return tell(VEXO_SESSION_BAD_ARGUMENT, "the size of the options is not set");
    }
    if (inet_pton(AF_INET, address, &settings.address) != 1) {
        return tell(VEXO_SESSION_BAD_ARGUMENT, "\"%.100s\" is no IPv4 address", address);
    }
    if (taken.mode > 2) {
        return tell(VEXO_SESSION_BAD_ARGUMENT, "over TCP there are the modes 1 and 2");
    }
    const auto or_default = [](uint32_t given_us, Nanoseconds otherwise) {
        return given_us != 0 ? given_us * kMicrosecond : otherwise;
    };
    settings.address_text = address;
    settings.mode = taken.mode != 0 ? taken.mode : settings.mode;
    settings.interface = taken.interface != nullptr ? taken.interface : "";
    settings.acknowledges = taken.no_acknowledge == 0;
    settings.attempt = or_default(taken.attempt_us, settings.attempt);
    settings.reply_limit = or_default(taken.reply_limit_us, settings.reply_limit);
    settings.idle = or_default(taken.idle_us, settings.idle);
    settings.stream_limit = or_default(taken.stream_limit_us, 0);
    if (taken.servo_method != nullptr) {
        settings.servo_method = taken.servo_method;
    }
    return VEXO_SESSION_OK;
}

// Whether raw frames can be had on this interface: told now, not at each attempt.
int32_t try_interface(const std::string& interface) {
    const auto port = make<RawPort>(interface.c_str());
    if (port->descriptor() >= 0) {
        return VEXO_SESSION_OK;
    }
    const bool forbidden = errno == EPERM || errno == EACCES;
    return tell(system_failure(forbidden ? VEXO_SESSION_NOT_PERMITTED : VEXO_SESSION_NO_INTERFACE,
                               interface.c_str(), errno));
}

// The error of a status is as the caller's size of the whole allows.
VexoSessionStatus status_of(const Robot& robot) {
    const Standing& now = robot.standing;
    VexoSessionStatus status{};
    status.state = now.state;
    status.state_since_ns = now.state_since;
    status.connection = now.connection;
    status.mode = robot.settings.raw() ? 3 : robot.settings.mode;
    status.catalogue_revision = now.revision;
    if (robot.catalogue) {
        status.outputs = static_cast<uint32_t>(robot.catalogue->list(VEXO_SESSION_OUTPUT).size());
        status.inputs = static_cast<uint32_t>(robot.catalogue->list(VEXO_SESSION_INPUT).size());
        status.methods = static_cast<uint32_t>(robot.catalogue->list(VEXO_SESSION_METHOD).size());
    }
    status.attempts = now.attempts;
    status.model = now.model;
    now.firmware.copy(status.firmware, sizeof status.firmware - 1);
    now.hardware.copy(status.hardware, sizeof status.hardware - 1);
    now.bootloader.copy(status.bootloader, sizeof status.bootloader - 1);
    robot.settings.address_text.copy(status.address, sizeof status.address - 1);
    std::copy(now.controller_mac.begin(), now.controller_mac.end(), status.controller_mac);
    std::copy(now.host_mac.begin(), now.host_mac.end(), status.host_mac);
    status.round_trip_us = static_cast<uint32_t>(now.round_trip / kMicrosecond);
    status.error = now.error;
    status.error.size = sizeof status.error;
    status.error_ns = now.error_at;
    return status;
}

}  // namespace

extern "C" const char* vexo_session_version() {
    return VEXO_PROJECT_VERSION;
}

extern "C" const char* vexo_session_state_name(uint32_t state) {
    constexpr const char* kNames[] = {"closed",      "waiting",           "connecting",
                                      "negotiating", "reading catalogue", "setting up",
                                      "ready",       "streaming"};
    return state <= VEXO_SESSION_STATE_STREAMING ? kNames[state] : "unknown";
}

extern "C" int32_t vexo_session_open(const char* address, const VexoSessionOptions* options,
                                     VexoSession** session) {
    if (address == nullptr || session == nullptr) {
        return tell_null("the address, or the room for the session,");
    }
    Settings settings;
    const int32_t taken = take_settings(address, options, settings);
    if (taken != VEXO_SESSION_OK) {
        return taken;
    }
    if (settings.raw()) {
        const int32_t tried = try_interface(settings.interface);
        if (tried != VEXO_SESSION_OK) {
            return tried;
        }
    }
    VexoSessionError error{};
    Ref<IoThread> io = IoThread::acquire(error);
    if (!io) {
        return tell(error);
    }
    auto robot = make<Robot>(std::move(io), std::move(settings));
    const Handle handle = add_handle(HandleKind::session, *robot);
    if (handle == 0) {
        IoThread::release();
        return tell(VEXO_SESSION_NO_MEMORY, "there is no free handle");
    }
    robot->wake();
    *session = reinterpret_cast<VexoSession*>(handle);
    return VEXO_SESSION_OK;
}

extern "C" int32_t vexo_session_close(VexoSession* session) {
    const auto handle = reinterpret_cast<Handle>(session);
    const CallOn<Robot> call = on(session);
    if (!call || !shut_handle(handle)) {
        return tell_closed();
    }
    call->close();
    // Calls that are inside have been woken. The last one to leave frees the session, should one be
    // held up for long.
    const Nanoseconds until = monotonic_ns() + kLeave;
    while (calls_inside(handle) > 1 && monotonic_ns() < until) {
        const timespec moment = to_timespec(50 * kMicrosecond);
        nanosleep(&moment, nullptr);
    }
    IoThread::release();
    return VEXO_SESSION_OK;
}

extern "C" int32_t vexo_session_wait(VexoSession* session, uint32_t state, int64_t limit_us) {
    const Nanoseconds deadline = deadline_after(limit_us);
    const CallOn<Robot> robot = on(session);
    if (!robot) {
        return tell_closed();
    }
    if (state != VEXO_SESSION_STATE_READY && state != VEXO_SESSION_STATE_STREAMING) {
        return tell(VEXO_SESSION_BAD_ARGUMENT, "only ready and streaming can be waited for");
    }
    const std::lock_guard lock(robot->monitor);
    const bool there = robot->monitor.wait_until(
        deadline, [&] { return robot->closed.load() || robot->standing.state >= state; });
    return there && !robot->closed.load() ? VEXO_SESSION_OK : tell(why_not(*robot));
}

extern "C" int32_t vexo_session_status(VexoSession* session, VexoSessionStatus* status) {
    const CallOn<Robot> robot = on(session);
    if (!robot) {
        return tell_closed();
    }
    if (status == nullptr) {
        return tell_null("status");
    }
    const std::lock_guard lock(robot->monitor);
    return give(status, status_of(*robot))
               ? VEXO_SESSION_OK
               : tell(VEXO_SESSION_BAD_ARGUMENT, "the size of the status is not set");
}

extern "C" int32_t vexo_session_next_event(VexoSession* session, uint64_t* position,
                                           VexoSessionEvent* event, int64_t limit_us) {
    const Nanoseconds deadline = deadline_after(limit_us);
    const CallOn<Robot> robot = on(session);
    if (!robot) {
        return tell_closed();
    }
    if (position == nullptr || event == nullptr) {
        return tell_null("position or event");
    }
    const std::lock_guard lock(robot->monitor);
    const auto more = [&] { return robot->events.newest() > *position; };
    robot->monitor.wait_until(deadline, [&] { return robot->closed.load() || more(); });
    if (!more()) {
        return robot->closed.load() ? tell_closed()
                                    : tell(VEXO_SESSION_TIMED_OUT, "nothing has happened");
    }
    const VexoSessionEvent next = robot->events.after(*position);
    if (!give(event, next)) {
        return tell(VEXO_SESSION_BAD_ARGUMENT, "the size of the event is not set");
    }
    *position = next.number;
    return VEXO_SESSION_OK;
}

extern "C" int32_t vexo_session_statistics(VexoSession* session,
                                           VexoSessionStatistics* statistics) {
    const CallOn<Robot> robot = on(session);
    if (!robot) {
        return tell_closed();
    }
    if (statistics == nullptr) {
        return tell_null("statistics");
    }
    VexoSessionStatistics now = robot->statistics.read();
    now.wake_ups = robot->io->wake_ups();
    return give(statistics, now)
               ? VEXO_SESSION_OK
               : tell(VEXO_SESSION_BAD_ARGUMENT, "the size of the statistics is not set");
}

extern "C" int32_t vexo_session_histogram(VexoSession* session, uint32_t measure,
                                          VexoSessionHistogram* histogram) {
    const CallOn<Robot> robot = on(session);
    if (!robot) {
        return tell_closed();
    }
    if (histogram == nullptr || measure >= VEXO_SESSION_MEASURES ||
        !give(histogram, robot->statistics.measures[measure].read())) {
        return tell(VEXO_SESSION_BAD_ARGUMENT, "no such measure, or no room for it");
    }
    return VEXO_SESSION_OK;
}

extern "C" int32_t vexo_session_clock(VexoSession* session, VexoSessionClock* clock) {
    const CallOn<Robot> robot = on(session);
    if (!robot) {
        return tell_closed();
    }
    if (clock == nullptr) {
        return tell_null("clock");
    }
    Ref<Stream> stream;
    {
        const std::lock_guard lock(robot->monitor);
        stream = robot->wanted.stream;
    }
    const VexoSessionClock now = stream ? stream->clock.read() : VexoSessionClock{};
    return give(clock, now) ? VEXO_SESSION_OK
                            : tell(VEXO_SESSION_BAD_ARGUMENT, "the size of the clock is not set");
}
