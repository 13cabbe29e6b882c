// The faults that are still to happen.
#ifndef SIM_FAULT_BOOK_H
#define SIM_FAULT_BOOK_H

#include <optional>
#include <string_view>
#include <vector>

#include "sim/fault.h"

namespace sim {

class FaultBook {
public:
    void add(Fault fault);
    void clear() { faults_.clear(); }
    // What befalls this message, if anything. `letter` and `method` are those of the request.
    std::optional<Fault> meet(Target target, char letter, std::string_view method);

private:
    std::vector<Fault> faults_;
};

}  // namespace sim

#endif
