#include "session/machine.h"

#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <mutex>

#include "session/error.h"
#include "session/feed.h"

namespace vexo::session {

namespace {

constexpr uint32_t kRawVersion = 3;
constexpr Nanoseconds kLostEach = 100 * kMillisecond;
// So many times as long as the last answer took may the first one after a cut take.
constexpr Nanoseconds kRoundTrips = 8;

}  // namespace

Machine::Machine(Robot& robot)
    : robot_(robot),
      io_(*robot.io),
      attempt_(io_, *this),
      dialogue_(io_, robot.statistics, *this),
      receiver_(io_, robot.statistics, *this),
      set_up_(robot, receiver_),
      caller_requests_(robot) {
    control_watch_.machine = this;
}

void Machine::woken() {
    if (ended_) {
        return;
    }
    if (robot_.closed.load()) {
        end();
        return;
    }
    if (!retry_.attempted()) {
        begin_attempt();
    }
    look_after_callers();
    proceed();
    plan();
}

void Machine::due() {
    if (ended_) {
        return;
    }
    const Nanoseconds now = monotonic_ns();
    check_limits(now);
    if (!attempt_.running() && !connection_ && now >= retry_.next()) {
        begin_attempt();
    }
    if (feed_ && standing_) {
        feed_->run(now);
    }
    receiver_.count_drops();
    tell_lost(now);
    proceed();
    plan();
}

// ---- Connecting ---------------------------------------------------------------------------------

void Machine::begin_attempt() {
    retry_.attempt(monotonic_ns());
    robot_.statistics.attempts.add();
    {
        const std::lock_guard lock(robot_.monitor);
        ++robot_.standing.attempts;
    }
    robot_.enter(VEXO_SESSION_STATE_CONNECTING);
    attempt_.begin(robot_.settings.address, !robot_.settings.raw());
}

void Machine::connected(Attempt::Links links) {
    const VexoSessionError error = prepare(links);
    if (error.code != VEXO_SESSION_OK) {
        cut(error);
        return;
    }
    proceed();
    plan();
}

VexoSessionError Machine::prepare(const Attempt::Links& links) {
    const Settings& settings = robot_.settings;
    connection_ = make<Connection>(links.io, links.control);
    connection_->version = settings.raw() ? kRawVersion : settings.mode;
    connection_->acknowledges = !settings.raw() || settings.acknowledges;
    connection_->number = last_number_ + 1;
    Ref<RawPort> stream_port;
    if (settings.raw()) {
        // The kernel hands a frame to the socket first that was bound last: acknowledgements are
        // waited for, while the stream's socket only counts them.
        stream_port = make<RawPort>(settings.interface.c_str());
        connection_->raw = make<RawPort>(settings.interface.c_str());
        if (connection_->raw->descriptor() < 0 || stream_port->descriptor() < 0) {
            return system_failure(VEXO_SESSION_NO_INTERFACE, settings.interface.c_str(), errno);
        }
    }
    const bool watched =
        (settings.raw() ? receiver_.begin(stream_port) : receiver_.begin(links.receive)) &&
        io_.watch(links.control->descriptor(), EPOLLRDHUP, control_watch_);
    if (!watched) {
        return system_failure(VEXO_SESSION_SYSTEM, "a connection cannot be watched", errno);
    }
    set_up_.begin(connection_, stream_port);
    dialogue_.begin(links.io);
    return {};
}

// ---- Requests -----------------------------------------------------------------------------------

// Makes the next request, unless one is under way.
void Machine::proceed() {
    if (!connection_ || dialogue_.busy()) {
        return;
    }
    const std::span<const uint8_t> request = set_up_.next();
    if (!request.empty()) {
        asked_ = Asked::set_up;
        dialogue_.ask(request);
        return;
    }
    if (!standing_) {
        stand();
    }
    robot_.enter(receiver_.receiving() ? VEXO_SESSION_STATE_STREAMING : VEXO_SESSION_STATE_READY);
    const std::span<const uint8_t> asked = caller_requests_.next(set_up_.buffer());
    asked_ = asked.empty() ? Asked::nothing : Asked::caller;
    if (!asked.empty()) {
        dialogue_.ask(asked);
    }
}

void Machine::replied(std::span<const uint8_t> reply, Nanoseconds round_trip) {
    round_trip_ = round_trip;
    {
        const std::lock_guard lock(robot_.monitor);
        robot_.standing.round_trip = round_trip;
    }
    if (asked_ == Asked::caller) {
        caller_requests_.answer(reply, round_trip);
    } else if (asked_ == Asked::set_up) {
        const auto error = set_up_.take(reply);
        if (error) {
            cut(*error);
            return;
        }
    }
    proceed();
    plan();
}

void Machine::look_after_callers() {
    {
        const std::lock_guard lock(robot_.monitor);
        feed_ = robot_.wanted.feed;
    }
    if (dialogue_.busy() && asked_ == Asked::caller && caller_requests_.withdrawn()) {
        dialogue_.drop_reply();
    }
}

void Machine::ping() {
    if (standing_ && connection_ && !dialogue_.busy()) {
        std::array<uint8_t, wire::kMessageHeader> request;
        asked_ = Asked::ping;
        dialogue_.ask(wire::MessageWriter(request, wire::Letter::controller_version).finish());
    }
}

// ---- Standing -----------------------------------------------------------------------------------

void Machine::stand() {
    standing_ = true;
    last_number_ = connection_->number;
    robot_.stands(connection_, was_cut_ ? retry_.down(monotonic_ns()) : 0);
}

void Machine::packages_lost() {
    if (tell_lost_at_ == kNever) {
        tell_lost_at_ = monotonic_ns() + kLostEach;
        plan();
    }
}

void Machine::tell_lost(Nanoseconds now) {
    if (now < tell_lost_at_) {
        return;
    }
    tell_lost_at_ = kNever;
    const uint64_t lost = robot_.statistics.lost.get();
    const std::lock_guard lock(robot_.monitor);
    robot_.events.count(VEXO_SESSION_EVENT_LOST, lost - lost_told_);
    lost_told_ = lost;
    robot_.monitor.tell_all();
}

// ---- Cuts ---------------------------------------------------------------------------------------

void Machine::ControlWatch::ready(uint32_t) {
    if (!machine->connection_) {
        return;
    }
    machine->cut(failure(VEXO_SESSION_CUT, "the controller has ended the control connection"));
}

void Machine::cut(const VexoSessionError& cause) {
    VexoSessionError error = cause;
    if (connection_ && connection_->reason().code != VEXO_SESSION_OK) {
        error = connection_->reason();
    }
    // A connection that never stood may have brought packages: its number is not given again.
    if (connection_ && receiver_.heard()) {
        last_number_ = connection_->number;
    }
    drop_everything(false);
    robot_.was_cut(error, standing_);
    if (std::exchange(standing_, false)) {
        was_cut_ = true;
        retry_.cut(monotonic_ns());
    }
    robot_.enter(VEXO_SESSION_STATE_WAITING);
    plan();
}

void Machine::drop_everything(bool finish) {
    robot_.set_live({});
    if (connection_) {
        io_.forget(connection_->control->descriptor());
    }
    dialogue_.end();
    receiver_.end();
    attempt_.abandon();
    set_up_.end();
    if (connection_) {
        connection_->end(finish);
        connection_ = {};
    }
    asked_ = Asked::nothing;
}

// What callers have sent is still delivered.
void Machine::end() {
    drop_everything(true);
    io_.unschedule(robot_);
    ended_ = true;
    feed_ = {};
    robot_.enter(VEXO_SESSION_STATE_CLOSED);
    robot_.finish();
}

// ---- Times --------------------------------------------------------------------------------------

Nanoseconds Machine::stream_limit() const {
    return robot_.settings.stream_limit != 0 ? robot_.settings.stream_limit : receiver_.patience();
}

// For the session's own requests. A controller that was there before and takes the connection may
// be silent still: it is known by then how soon it would have answered.
Nanoseconds Machine::reply_deadline() const {
    const Nanoseconds deadline = dialogue_.asked_at() + robot_.settings.reply_limit;
    if (!was_cut_ || set_up_.answered()) {
        return deadline;
    }
    return std::min(deadline,
                    retry_.limit(std::max(robot_.settings.attempt, kRoundTrips * round_trip_)));
}

void Machine::check_limits(Nanoseconds now) {
    if (attempt_.running() && now >= retry_.limit(robot_.settings.attempt)) {
        cut(failure(VEXO_SESSION_UNREACHABLE, "port %u does not answer", attempt_.waiting_for()));
    } else if (dialogue_.busy() && asked_ != Asked::caller && now >= reply_deadline()) {
        cut(failure(VEXO_SESSION_SILENT, "the controller does not answer requests"));
    } else if (receiver_.receiving() && now >= receiver_.heard_at() + stream_limit()) {
        cut(failure(VEXO_SESSION_SILENT, "the controller has stopped to stream"));
    } else if (standing_ && !receiver_.receiving() &&
               now >= dialogue_.heard_at() + robot_.settings.idle) {
        ping();
    }
}

// When something is to be done even though nothing comes. Packages move this only when it is
// reached.
void Machine::plan() {
    if (ended_) {
        return;
    }
    Nanoseconds when = tell_lost_at_;
    if (attempt_.running()) {
        when = std::min(when, retry_.limit(robot_.settings.attempt));
    } else if (!connection_) {
        when = std::min(when, retry_.next());
    }
    if (dialogue_.busy() && asked_ != Asked::caller) {
        when = std::min(when, reply_deadline());
    }
    if (receiver_.receiving()) {
        when = std::min(when, receiver_.heard_at() + stream_limit());
    } else if (standing_ && !dialogue_.busy()) {
        when = std::min(when, dialogue_.heard_at() + robot_.settings.idle);
    }
    if (feed_ && standing_) {
        when = std::min(when, feed_->next_time());
    }
    io_.schedule(robot_, when);
}

}  // namespace vexo::session
