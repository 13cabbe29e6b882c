#include <algorithm>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "sim/fault_items.h"

namespace sim {

namespace {

struct Found {
    const FaultGroup* group;
    const FaultItem* item;
};

Found find_item(const std::string& name) {
    for (const FaultGroup& group : fault_groups()) {
        const auto item = std::ranges::find(group.items, name, &FaultItem::name);
        if (item != group.items.end()) {
            return {&group, &*item};
        }
    }
    throw std::invalid_argument("fault: there is no item \"" + name + "\"");
}

std::string written(const FaultItem& item) {
    return std::string(item.name) + (item.value.empty() ? "" : "=") + std::string(item.value);
}

void set_item(Fault& fault, const Found& found, const std::string& value) {
    std::string why;
    try {
        if (value.empty() == found.item->value.empty()) {
            found.item->set(fault, value);
            if (found.group->names_messages && fault.target == Target::controller) {
                fault.target = Target::reply;
            }
            return;
        }
    } catch (const std::invalid_argument& error) {
        why = error.what();
    }
    const std::string text = std::string(found.item->name) + (value.empty() ? "" : "=") + value;
    throw std::invalid_argument("fault: \"" + text +
                                "\": " + (why.empty() ? "write " + written(*found.item) : why));
}

std::vector<std::string> words_of(std::string text) {
    std::ranges::replace(text, ',', ' ');
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), {}};
}

}  // namespace

Fault parse_fault(const std::string& text) {
    Fault fault;
    fault.target = Target::controller;
    const std::vector<std::string> words = words_of(text);
    for (auto word = words.begin(); word != words.end(); ++word) {
        const size_t equals = word->find('=');
        const Found found = find_item(word->substr(0, equals));
        const bool value_follows = equals == std::string::npos && !found.item->value.empty() &&
                                   std::next(word) != words.end();
        set_item(fault, found,
                 value_follows                 ? *++word
                 : equals == std::string::npos ? ""
                                               : word->substr(equals + 1));
    }
    if (!fault.befalls_controller() && fault.target == Target::controller) {
        fault.target = Target::reply;
    }
    return fault;
}

std::string fault_table() {
    std::ostringstream out;
    out << "| Item | Meaning |\n|---|---|\n";
    for (const FaultGroup& group : fault_groups()) {
        out << "| **" << group.title << "** | |\n";
        for (const FaultItem& item : group.items) {
            out << "| `" << written(item) << "` | " << item.meaning << " |\n";
        }
    }
    return out.str();
}

}  // namespace sim
