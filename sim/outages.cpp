#include "sim/outages.h"

#include <algorithm>

namespace sim {

size_t Outages::row(Port port) {
    return static_cast<size_t>(std::ranges::find(kPorts, port) - kPorts.begin());
}

bool Outages::lasts(Kind kind, Port port, Clock::time_point now) const {
    return until_[static_cast<size_t>(kind)][row(port)] > now;
}

void Outages::set(Kind kind, std::optional<Span> span, std::optional<Port> port,
                  Clock::time_point now) {
    for (const Port each : kPorts) {
        if (span && (!port || each == *port)) {
            until_[static_cast<size_t>(kind)][row(each)] = after(now, *span);
        }
    }
}

void Outages::begin(const Fault& fault, Clock::time_point now) {
    set(Kind::down, fault.reboot, std::nullopt, now);
    set(Kind::silent, fault.silence, fault.port, now);
    set(Kind::half_open, fault.half_open, fault.port, now);
    set(Kind::refused, fault.refuse, fault.port, now);
}

Clock::time_point Outages::next_end(Clock::time_point now) const {
    auto next = Clock::time_point::max();
    for (const auto& of_kind : until_) {
        for (const Clock::time_point until : of_kind) {
            next = until > now ? std::min(next, until) : next;
        }
    }
    return next;
}

}  // namespace sim
