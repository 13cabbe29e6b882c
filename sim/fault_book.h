// The faults that are still to happen.
#ifndef SIM_FAULT_BOOK_H
#define SIM_FAULT_BOOK_H

#include <list>
#include <random>
#include <string_view>

#include "sim/clock.h"
#include "sim/fault.h"
#include "sim/wire.h"

namespace sim {

// A message that the controller is about to send: what the faults choose by.
struct Passing {
    Target target;
    Port port;                // that the request came from, or the package goes to
    char letter;              // of the request
    BytesView request;        // empty for packages
    std::string_view method;  // that the request calls
};

// At least 0, less than 1.
double share(std::minstd_rand& random);

class FaultBook {
public:
    void add(Fault fault, Clock::time_point now);
    void clear() { entries_.clear(); }

    // What befalls this message, if anything; chance and jitter are settled. Faults that end a
    // connection after a total of bytes do not count here.
    std::optional<Fault> meet(const Passing& message, Clock::time_point now);
    // The fault that ends the connection within the bytes from `begin` to `end` of all there were,
    // with the position within them.
    std::optional<Fault> meet_total(Target target, size_t begin, size_t end);

    // What befalls the controller now, if anything, and when something will.
    std::optional<Fault> due(Clock::time_point now);
    Clock::time_point next_due() const;

private:
    struct Entry {
        Fault fault;
        Clock::time_point from;
        Clock::time_point until;
        size_t left;
        size_t seen = 0;
        std::minstd_rand random{fault.seed};
    };

    static bool is_hit(Entry& entry);
    Fault use(std::list<Entry>::iterator entry);

    std::list<Entry> entries_;
};

}  // namespace sim

#endif
