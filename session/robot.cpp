#include "session/robot.h"

#include <algorithm>
#include <mutex>

#include "session/error.h"
#include "session/feed.h"
#include "session/inputs.h"
#include "session/machine.h"
#include "session/stream.h"
#include "wire/set_point.h"

namespace vexo::session {

Robot::Robot(Ref<IoThread> thread, Settings given)
    : io(std::move(thread)),
      settings(std::move(given)),
      machine_(std::make_unique<Machine>(*this)) {}

Robot::~Robot() = default;

void Robot::woken() {
    machine_->woken();
}

void Robot::due() {
    machine_->due();
}

Ref<Live> Robot::live() {
    const std::lock_guard lock(live_mutex_);
    return live_;
}

void Robot::set_live(Ref<Live> live) {
    const std::lock_guard lock(live_mutex_);
    live_ = std::move(live);
}

uint32_t Robot::next_sequence() {
    uint32_t before = sequence.load(std::memory_order_relaxed);
    while (!sequence.compare_exchange_weak(before, wire::next_sequence(before))) {
    }
    return wire::next_sequence(before);
}

void Robot::stands(const Ref<Connection>& connection, Nanoseconds down) {
    statistics.connections.add();
    auto now = make<Live>();
    now->connection = connection;
    now->control = make<ControlPort>(connection, statistics);
    {
        const std::lock_guard lock(monitor);
        now->catalogue = catalogue;
        now->servo_method = catalogue->find(VEXO_SESSION_METHOD, settings.servo_method);
        standing.connection = connection->number;
        standing.attempts = 0;
        if (down != 0) {
            events.span(VEXO_SESSION_EVENT_BACK, down);
        }
    }
    if (down != 0) {
        const auto span = static_cast<uint64_t>(down);
        statistics.cut_ns.add(span);
        statistics.last_cut_ns.set(span);
        statistics.longest_cut_ns.set(std::max(span, statistics.longest_cut_ns.get()));
    }
    set_live(std::move(now));
}

void Robot::was_cut(const VexoSessionError& error, bool stood) {
    const VexoSessionError told = failure(VEXO_SESSION_CUT, "%s", error.cause);
    const std::lock_guard lock(monitor);
    requests.finish_all(
        told, failure(VEXO_SESSION_NOT_CONNECTED, "the session was cut before it was sent"));
    for (const Ref<Inputs>& inputs : wanted.inputs) {
        inputs->cut(stood);
    }
    if (wanted.stream) {
        wanted.stream->clock.reset();
    }
    if (wanted.ending) {
        wanted.ending->error = told;
        wanted.ending = {};
    }
    if (wanted.feed) {
        wanted.feed->cut();
    }
    if (stood) {
        statistics.cuts.add();
        statistics.last_cut_ns.set(0);
    }
    note(stood ? VEXO_SESSION_EVENT_CUT : VEXO_SESSION_EVENT_ERROR, error);
    monitor.tell_all();
}

void Robot::finish() {
    const VexoSessionError closed_error = failure(VEXO_SESSION_CLOSED, "the session was closed");
    const std::lock_guard lock(monitor);
    requests.finish_all(closed_error, closed_error);
    wanted = {};
    gone = true;
    monitor.tell_all();
}

void Robot::enter(uint32_t state) {
    const std::lock_guard lock(monitor);
    if (standing.state == state) {
        return;
    }
    events.state(standing.state, state);
    standing.state = state;
    standing.state_since = monotonic_ns();
    monitor.tell_all();
}

// An equal one is not told as a new one.
void Robot::offer(const Ref<Catalogue>& read) {
    const std::lock_guard lock(monitor);
    const bool first = !catalogue;
    if (first || !catalogue->same(*read)) {
        catalogue = read;
        ++standing.revision;
        if (!first) {
            events.count(VEXO_SESSION_EVENT_CATALOGUE, standing.revision);
        }
    }
    monitor.tell_all();
}

void Robot::note(uint32_t event_kind, const VexoSessionError& error) {
    standing.error = error;
    standing.error.size = sizeof error;
    standing.error_at = realtime_ns();
    uint64_t count = 0;
    const bool told_now = repetition_.tell(error, monotonic_ns(), count);
    if (told_now || event_kind == VEXO_SESSION_EVENT_CUT) {
        events.error(event_kind, error, std::max<uint64_t>(count, 1));
    }
}

namespace {

// Wakes whoever waits inside a call on what was opened on the session, and lets no further call in.
void close_children(Wanted& wanted, std::vector<Handle>& children) {
    if (wanted.stream) {
        wanted.stream->close();
        for (const Handle cursor : wanted.stream->cursors) {
            close_cursor(cursor);
        }
    }
    if (wanted.feed) {
        wanted.feed->close();
    }
    for (const Handle child : children) {
        shut_handle(child);
    }
    children.clear();
}

}  // namespace

void Robot::close() {
    // Rings are given back by this thread: that takes long, and others stream meanwhile.
    Ref<Stream> stream;
    {
        const std::lock_guard lock(monitor);
        closed.store(true);
        stream = wanted.stream;
        close_children(wanted, children);
        monitor.tell_all();
    }
    if (const Ref<Live> now = live()) {
        now->connection->control->finish();
    }
    wake();
    const std::lock_guard lock(monitor);
    monitor.wait_until(kNever / 2, [this] { return gone; });
}

}  // namespace vexo::session
