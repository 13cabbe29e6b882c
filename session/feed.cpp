#include "session/feed.h"

#include <cstring>
#include <mutex>

#include "session/error.h"
#include "session/servo.h"
#include "session/structure.h"

namespace vexo::session {

Feed::Feed(Ref<Robot> of, Ref<Live> live, const Options& given)
    : robot(std::move(of)),
      options(given),
      live_(std::move(live)),
      points_(size_t{given.joints} * given.capacity) {}

// ---- The I/O thread -----------------------------------------------------------------------------

// While there is nothing to send there is no time either: the next push wakes the thread.
Nanoseconds Feed::next_time() {
    return over() || waiting() == 0 ? kNever : due_;
}

void Feed::run(Nanoseconds now) {
    if (next_time() > now) {
        return;
    }
    const uint64_t number = taken_.load(std::memory_order_relaxed);
    // What was missed is not made up for: set-points do not come in bursts.
    if (due_ != 0 && now - due_ >= options.period) {
        const Nanoseconds missed = (now - due_) / options.period;
        underruns_.add(static_cast<uint64_t>(missed));
        due_ += missed * options.period;
    }
    due_ = (due_ == 0 ? now : due_) + options.period;
    send(points_.data() + number % options.capacity * options.joints);
    taken_.store(number + 1);
    taken_one_.tell();
}

void Feed::send(const double* joints) {
    ControlPort& control = *live_->control;
    if (!control.try_turn()) {
        underruns_.add();
        return;
    }
    collect();
    VexoSessionSetPoint point{};
    point.count = options.joints;
    point.value = options.value;
    point.joints = joints;
    point.flag = options.flag;
    ControlPort::Manner manner;
    manner.wait = false;
    manner.in_frame = static_cast<bool>(live_->connection->raw);
    Answer answer;
    const size_t size = build_set_point(*robot, *live_, point);
    if (control.exchange(size, manner, answer) == Outcome::not_awaited) {
        sent_.add();
        robot->statistics.set_points.add();
    }
    control.end_turn();
}

// The turn is had.
void Feed::collect() {
    size_t refused = 0;
    uint8_t status = 0;
    const size_t came = live_->control->collect(refused, status);
    acknowledged_.add(came);
    refused_.add(refused);
    robot->statistics.acknowledged.add(came);
    robot->statistics.refused.add(refused);
    if (refused > 0) {
        last_status_.store(status);
    }
}

void Feed::cut() {
    cut_.store(true);
    taken_one_.tell();
}

// ---- Any thread ---------------------------------------------------------------------------------

void Feed::close() {
    closed_.store(true);
    taken_one_.tell();
}

int32_t Feed::why_over() const {
    return closed_.load() ? tell_closed()
                          : tell(VEXO_SESSION_CUT, "the session was cut since the feed was opened");
}

int32_t Feed::push(const double* points, uint32_t count, Nanoseconds deadline, uint32_t& taken) {
    taken = 0;
    if (!pushing_.lock_until(deadline)) {
        return tell(VEXO_SESSION_TIMED_OUT, "another thread's push lasts");
    }
    const std::lock_guard lock(pushing_, std::adopt_lock);
    while (taken < count) {
        const bool room = taken_one_.wait_until(
            deadline, [this] { return over() || waiting() < options.capacity; });
        if (over()) {
            return why_over();
        }
        if (!room) {
            return tell(VEXO_SESSION_TIMED_OUT, "the feed is full");
        }
        const uint64_t number = pushed_.load(std::memory_order_relaxed);
        std::memcpy(points_.data() + number % options.capacity * options.joints,
                    points + size_t{taken} * options.joints, options.joints * sizeof(double));
        pushed_.store(number + 1);
        ++taken;
        if (waiting() == 1) {
            robot->wake();
        }
    }
    return VEXO_SESSION_OK;
}

int32_t Feed::drain(Nanoseconds deadline) {
    const bool empty = taken_one_.wait_until(deadline, [this] { return over() || waiting() == 0; });
    if (over()) {
        return why_over();
    }
    return empty ? VEXO_SESSION_OK : tell(VEXO_SESSION_TIMED_OUT, "not all has been sent in time");
}

VexoSessionFeedStatus Feed::status() {
    if (live_->control->try_turn()) {
        collect();
        live_->control->end_turn();
    }
    VexoSessionFeedStatus now{};
    now.cut = cut_.load() ? 1 : 0;
    now.waiting = over() ? 0 : waiting();
    now.sent = sent_.get();
    now.acknowledged = acknowledged_.get();
    now.refused = refused_.get();
    now.underruns = underruns_.get();
    now.last_status = last_status_.load();
    return now;
}

}  // namespace vexo::session

using namespace vexo::session;

namespace {

constexpr uint32_t kMostJoints = 255;
constexpr Nanoseconds kShortestPeriod = 250 * kMicrosecond;

CallOn<Feed> on(VexoSessionFeed* feed) {
    return {feed, HandleKind::feed};
}

bool take_options(Feed::Options& options, const VexoSessionFeedOptions* given) {
    VexoSessionFeedOptions taken;
    if (given == nullptr || !take(taken, given)) {
        return false;
    }
    options.joints = taken.joints;
    options.period = taken.period_us != 0 ? taken.period_us * kMicrosecond : options.period;
    options.capacity = taken.capacity != 0 ? taken.capacity : options.capacity;
    options.value = taken.value;
    options.flag = taken.flag;
    return options.joints > 0 && options.joints <= kMostJoints && options.period >= kShortestPeriod;
}

}  // namespace

extern "C" int32_t vexo_session_feed_open(VexoSession* session,
                                          const VexoSessionFeedOptions* options,
                                          VexoSessionFeed** feed) {
    const CallOn<Robot> robot(session, HandleKind::session);
    if (!robot) {
        return tell_closed();
    }
    Feed::Options taken;
    if (feed == nullptr || !take_options(taken, options)) {
        return tell(VEXO_SESSION_BAD_ARGUMENT, "the feed has 1 to 255 joints and 250 us at least");
    }
    Ref<Live> live = robot->live();
    if (!live) {
        return tell(VEXO_SESSION_NOT_CONNECTED, "the session is not connected");
    }
    if (live->servo_method == nullptr) {
        return tell(no_servo_method(*robot, *live));
    }
    auto made = make<Feed>(Ref<Robot>::share(&*robot), live, taken);
    const std::lock_guard lock(robot->monitor);
    if (robot->wanted.feed) {
        return tell(VEXO_SESSION_BUSY, "the session has a feed already");
    }
    if (robot->closed.load()) {
        return tell_closed();
    }
    const Handle handle = add_handle(HandleKind::feed, *made);
    if (handle == 0) {
        return tell(VEXO_SESSION_NO_MEMORY, "there is no free handle");
    }
    robot->children.push_back(handle);
    robot->feeding.store(true);
    if (!(robot->live() == live)) {
        made->cut();
    }
    robot->wanted.feed = std::move(made);
    *feed = reinterpret_cast<VexoSessionFeed*>(handle);
    return VEXO_SESSION_OK;
}

extern "C" int32_t vexo_session_feed_push(VexoSessionFeed* feed, const double* points,
                                          uint32_t count, int64_t limit_us, uint32_t* taken) {
    const Nanoseconds deadline = deadline_after(limit_us);
    const CallOn<Feed> call = on(feed);
    if (!call) {
        return tell_closed();
    }
    if (points == nullptr && count > 0) {
        return tell_null("points");
    }
    uint32_t appended = 0;
    const int32_t result = call->push(points, count, deadline, appended);
    if (taken != nullptr) {
        *taken = appended;
    }
    return result;
}

extern "C" int32_t vexo_session_feed_drain(VexoSessionFeed* feed, int64_t limit_us) {
    const Nanoseconds deadline = deadline_after(limit_us);
    const CallOn<Feed> call = on(feed);
    return call ? call->drain(deadline) : tell_closed();
}

extern "C" int32_t vexo_session_feed_status(VexoSessionFeed* feed, VexoSessionFeedStatus* status) {
    const CallOn<Feed> call = on(feed);
    if (!call) {
        return tell_closed();
    }
    return status != nullptr && give(status, call->status())
               ? VEXO_SESSION_OK
               : tell(VEXO_SESSION_BAD_ARGUMENT, "there is no room for the status");
}

extern "C" int32_t vexo_session_feed_close(VexoSessionFeed* feed) {
    const CallOn<Feed> call = on(feed);
    const auto handle = reinterpret_cast<Handle>(feed);
    if (!call || !shut_handle(handle)) {
        return tell_closed();
    }
    call->close();
    Robot& robot = *call->robot;
    {
        const std::lock_guard lock(robot.monitor);
        std::erase(robot.children, handle);
        robot.wanted.feed = {};
        robot.feeding.store(false);
    }
    robot.wake();
    return VEXO_SESSION_OK;
}
