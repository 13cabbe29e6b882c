// The items of which the text of a fault is made.
#ifndef SIM_FAULT_ITEMS_H
#define SIM_FAULT_ITEMS_H

#include <span>
#include <string_view>

#include "sim/fault.h"

namespace sim {

struct FaultItem {
    std::string_view name;
    std::string_view value;  // how it is written; empty: the item has none
    // Throws std::invalid_argument, with a text where it is more than a value badly written.
    void (*set)(Fault& fault, const std::string& value);
    std::string_view meaning;
};

struct FaultGroup {
    std::string_view title;
    bool names_messages;  // what befalls the controller then waits for one
    std::span<const FaultItem> items;
};

std::span<const FaultGroup> fault_groups();

}  // namespace sim

#endif
