#include "session/events.h"

namespace vexo::session {

Events::Event& Events::add(uint32_t kind) {
    Event& event = kept_[++newest_ % kKept];
    event.values = {};
    event.values.kind = kind;
    event.values.number = newest_;
    event.values.realtime_ns = realtime_ns();
    event.values.monotonic_ns = monotonic_ns();
    event.values.count = 1;
    event.cause.clear();
    event.remedy.clear();
    return event;
}

void Events::state(uint32_t from, uint32_t to) {
    Event& event = add(VEXO_SESSION_EVENT_STATE);
    event.values.previous = from;
    event.values.state = to;
}

void Events::span(uint32_t kind, Nanoseconds span) {
    add(kind).values.span_ns = span;
}

void Events::count(uint32_t kind, uint64_t count) {
    add(kind).values.count = count;
}

void Events::error(uint32_t kind, const VexoSessionError& error, uint64_t count) {
    Event& event = add(kind);
    event.values.count = count;
    event.values.error.code = error.code;
    event.values.error.status = error.status;
    event.values.error.system = error.system;
    event.cause = error.cause;
    event.remedy = error.remedy;
}

VexoSessionEvent Events::after(uint64_t position) const {
    const uint64_t oldest = newest_ > kKept ? newest_ - kKept + 1 : 1;
    const Event& kept = kept_[std::max(position + 1, oldest) % kKept];
    VexoSessionEvent event = kept.values;
    event.error.size = sizeof event.error;
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
