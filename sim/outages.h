// For how long which port of a controller is out of order, and how.
#ifndef SIM_OUTAGES_H
#define SIM_OUTAGES_H

#include <array>

#include "sim/clock.h"
#include "sim/fault.h"

namespace sim {

class Outages {
public:
    // A later outage of the same kind takes the place of an earlier one.
    void begin(const Fault& fault, Clock::time_point now);
    void end() { *this = {}; }
    // When the next of them ends.
    Clock::time_point next_end(Clock::time_point now) const;

    bool down(Clock::time_point now) const { return lasts(Kind::down, Port::io, now); }
    // What comes is taken, and nothing is done with it.
    bool silent(Port port, Clock::time_point now) const {
        return down(now) || lasts(Kind::silent, port, now);
    }
    // What comes is not taken.
    bool half_open(Port port, Clock::time_point now) const {
        return lasts(Kind::half_open, port, now);
    }
    // Nothing is sent.
    bool mute(Port port, Clock::time_point now) const {
        return silent(port, now) || half_open(port, now);
    }
    // Nobody listens.
    bool refused(Port port, Clock::time_point now) const {
        return down(now) || lasts(Kind::refused, port, now);
    }

private:
    enum class Kind { down, silent, half_open, refused };
    static constexpr size_t kKinds = 4;
    static constexpr std::array<Port, 4> kPorts{Port::raw, Port::io, Port::control, Port::stream};

    static size_t row(Port port);
    bool lasts(Kind kind, Port port, Clock::time_point now) const;
    void set(Kind kind, std::optional<Span> span, std::optional<Port> port, Clock::time_point now);

    // The clock's epoch: no outage.
    std::array<std::array<Clock::time_point, kPorts.size()>, kKinds> until_{};
};

}  // namespace sim

#endif
