#include "session/events.h"

namespace vexo::session {

Events::Event& Events::add(uint32_t kind) {
    Event& event = kept_[++newest_ % kKept];
    event = {};
    event.kind = kind;
    event.number = newest_;
    event.realtime = realtime_ns();
    event.monotonic = monotonic_ns();
    return event;
}

// Whether the two latest events went to and fro between these two states.
bool Events::tells_of(uint32_t from, uint32_t to) const {
    if (newest_ < 2) {
        return false;
    }
    const Event& latest = kept_[newest_ % kKept];
    const Event& before = kept_[(newest_ - 1) % kKept];
    const auto is = [](const Event& event, uint32_t left, uint32_t entered) {
        return event.kind == VEXO_SESSION_EVENT_STATE && event.previous == left &&
               event.state == entered;
    };
    return (is(latest, from, to) && is(before, to, from)) ||
           (is(latest, to, from) && is(before, from, to));
}

void Events::state(uint32_t from, uint32_t to) {
    if (tells_of(from, to)) {
        return;
    }
    Event& event = add(VEXO_SESSION_EVENT_STATE);
    event.previous = from;
    event.state = to;
}

void Events::span(uint32_t kind, Nanoseconds span) {
    add(kind).span = span;
}

void Events::count(uint32_t kind, uint64_t count) {
    add(kind).count = count;
}

void Events::error(uint32_t kind, const VexoSessionError& error, uint64_t count) {
    Event& event = add(kind);
    event.count = count;
    event.code = error.code;
    event.status = error.status;
    event.system = error.system;
    event.cause = error.cause;
    event.remedy = error.remedy;
}

VexoSessionEvent Events::after(uint64_t position) const {
    const uint64_t oldest = newest_ > kKept ? newest_ - kKept + 1 : 1;
    const Event& kept = kept_[std::max(position + 1, oldest) % kKept];
    VexoSessionEvent event{};
    event.kind = kept.kind;
    event.number = kept.number;
    event.realtime_ns = kept.realtime;
    event.monotonic_ns = kept.monotonic;
    event.state = kept.state;
    event.previous = kept.previous;
    event.span_ns = kept.span;
    event.count = kept.count;
    event.error.size = sizeof event.error;
    event.error.code = kept.code;
    event.error.status = kept.status;
    event.error.system = kept.system;
    kept.cause.copy(event.error.cause, sizeof event.error.cause - 1);
    kept.remedy.copy(event.error.remedy, sizeof event.error.remedy - 1);
    return event;
}

bool Repetition::tell(const VexoSessionError& error, Nanoseconds now, uint64_t& count) {
    if (cause_ == error.cause && now - told_ < kSecond) {
        ++held_back_;
        return false;
    }
    count = cause_ == error.cause ? held_back_ + 1 : 1;
    cause_ = error.cause;
    told_ = now;
    held_back_ = 0;
    return true;
}

}  // namespace vexo::session
