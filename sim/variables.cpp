#include "sim/variables.h"

#include <algorithm>

namespace sim {

namespace {

// A value that tells which variable it is, for outputs the arm knows nothing of.
Bytes id_pattern(uint32_t id, size_t length) {
    Bytes pattern(length);
    for (size_t i = 0; i < length; ++i) {
        pattern[i] = static_cast<uint8_t>(id >> (i % sizeof id * 8));
    }
    return pattern;
}

auto named(const std::string& name) {
    return [&name](const Slot& slot) { return slot.variable->name == name; };
}

std::unordered_map<uint32_t, Slot*> by_id(std::vector<Slot>& slots) {
    std::unordered_map<uint32_t, Slot*> result;
    for (Slot& slot : slots) {
        result.emplace(slot.variable->id, &slot);
    }
    return result;
}

Slot* found_in(const std::unordered_map<uint32_t, Slot*>& map, uint32_t id) {
    const auto found = map.find(id);
    return found != map.end() ? found->second : nullptr;
}

}  // namespace

Variables::Variables(const Catalogue& catalogue) {
    for (const Variable& output : catalogue.outputs) {
        outputs_.push_back({&output, find_signal(output.name, output.type),
                            id_pattern(output.id, width(output.type))});
    }
    for (const Variable& input : catalogue.inputs) {
        inputs_.push_back({&input, nullptr, Bytes(width(input.type))});
    }
    outputs_by_id_ = by_id(outputs_);
    inputs_by_id_ = by_id(inputs_);
}

Slot* Variables::find(uint32_t id, Choice choice) {
    Slot* output = choice == Choice::all ? found_in(outputs_by_id_, id) : nullptr;
    return output != nullptr ? output : found_in(inputs_by_id_, id);
}

std::optional<Recipe> Variables::make_recipe(Reader& ids, Choice choice) {
    Recipe recipe;
    while (ids.left() > 0) {
        Slot* slot = find(ids.number<uint32_t>(), choice);
        if (slot == nullptr) {
            return std::nullopt;
        }
        recipe.slots.push_back(slot);
        recipe.length += slot->held.size();
    }
    return recipe;
}

std::vector<Slot*> Variables::hold(const std::vector<Variable>& outputs) {
    std::vector<Slot*> held;
    for (const Variable& output : outputs) {
        const auto slot = std::ranges::find_if(outputs_, named(output.name));
        const bool there = slot != outputs_.end() && slot->variable->type == output.type;
        held.push_back(there ? &*slot : nullptr);
        if (there) {
            slot->signal = nullptr;
        }
    }
    return held;
}

bool Variables::set_output(const std::string& name, const Bytes& value) {
    const auto slot = std::ranges::find_if(outputs_, named(name));
    if (slot == outputs_.end()) {
        return false;
    }
    slot->signal = nullptr;
    slot->held = value;
    slot->held.resize(width(slot->variable->type));
    return true;
}

Bytes Variables::input(const std::string& name) const {
    const auto slot = std::ranges::find_if(inputs_, named(name));
    return slot != inputs_.end() ? slot->held : Bytes{};
}

void write_values(const Recipe& recipe, const Arm& arm, Writer& out) {
    for (const Slot* slot : recipe.slots) {
        if (slot->signal != nullptr) {
            slot->signal->write(arm, out);
        } else {
            out.bytes(slot->held);
        }
    }
}

void hold_values(const Recipe& recipe, BytesView values) {
    Reader in(values);
    for (Slot* slot : recipe.slots) {
        const BytesView value = in.bytes(slot->held.size());
        slot->held.assign(value.begin(), value.end());
    }
}

}  // namespace sim
