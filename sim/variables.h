// The values behind a controller's outputs and inputs, and the recipes that put them in order.
#ifndef SIM_VARIABLES_H
#define SIM_VARIABLES_H

#include <optional>
#include <unordered_map>

#include "sim/arm_signals.h"

namespace sim {

// A variable of the catalogue: shown by the arm, or else held here.
struct Slot {
    const Variable* variable;
    const Signal* signal;
    Bytes held;
};

struct Recipe {
    uint8_t id = 0;
    size_t length = 0;  // of all values
    std::vector<Slot*> slots;
};

class Variables {
public:
    // Keeps pointers into the catalogue.
    explicit Variables(const Catalogue& catalogue);
    Variables(const Variables&) = delete;
    Variables& operator=(const Variables&) = delete;

    // Which variables a recipe may name. An output recipe may also name inputs, whose values it
    // echoes; an id that both lists have means the output.
    enum class Choice { all, inputs };
    // A recipe of these ids; nothing when one of them is unknown.
    std::optional<Recipe> make_recipe(Reader& ids, Choice choice);

    // The outputs of these names and types, to be held from now on; null where there is none.
    std::vector<Slot*> hold(const std::vector<Variable>& outputs);
    // Fixes an output to a value; false when there is no such name.
    bool set_output(const std::string& name, const Bytes& value);
    // The value an input holds; empty when there is no such name.
    Bytes input(const std::string& name) const;

private:
    Slot* find(uint32_t id, Choice choice);

    std::vector<Slot> outputs_;
    std::vector<Slot> inputs_;
    std::unordered_map<uint32_t, Slot*> outputs_by_id_;
    std::unordered_map<uint32_t, Slot*> inputs_by_id_;
};

// Appends the values of a recipe as they are now.
void write_values(const Recipe& recipe, const Arm& arm, Writer& out);
// Has the recipe's variables hold the values, of which there are as many bytes as it is long.
void hold_values(const Recipe& recipe, BytesView values);

}  // namespace sim

#endif
