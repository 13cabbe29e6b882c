// Packages that are sent again, instead of what the simulated arm shows.
#ifndef SIM_REPLAY_H
#define SIM_REPLAY_H

#include "sim/clock.h"
#include "sim/wire.h"

namespace sim {

class Replay {
public:
    virtual ~Replay() = default;

    virtual const std::vector<Variable>& variables() const = 0;
    virtual void rewind() = 0;
    // The values of one package after the other, in the variables' order; behind the last comes the
    // first again.
    virtual BytesView next() = 0;
    // From the package that next() will give to the one behind it.
    virtual Clock::duration interval() const = 0;
};

}  // namespace sim

#endif
