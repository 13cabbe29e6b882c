// Recipes: the ordered lists of variables that make up a package.
#include <algorithm>

#include "client/exchange.h"
#include "client/vexo.h"
#include "wire/package.h"
#include "wire/recipe.h"
#include "wire/value_type.h"

using namespace vexo;

namespace {

constexpr int kReceiveLength = 1400;  // the limit that the input warning names

// Collects the rows of a recipe: their ids in the request, their widths in a recipe table.
class RecipeBuilder {
public:
    explicit RecipeBuilder(wire::MessageWriter& message) : message_(message) {}

    // `entry` is null for a row outside the catalogue, which counts as an empty row.
    void add(const VariableEntry* entry, RecipePosition* table, uint32_t positions) {
        static constexpr VariableEntry kEmpty{};
        const VariableEntry& variable = entry != nullptr ? *entry : kEmpty;
        const auto length = static_cast<uint8_t>(wire::type_width(variable.type));
        message_.u32(variable.id);
        if (position_ < positions) {
            table[position_].type = variable.type;
            table[position_].value_length = length;
        }
        ++position_;
        sum_ += length;
    }

    uint32_t position() const { return position_; }
    uint32_t sum() const { return sum_; }

private:
    wire::MessageWriter& message_;
    uint32_t position_ = 0;
    uint32_t sum_ = 0;
};

template <uint32_t rows>
VariableEntry* entry_of(VariableEntry (&catalogue)[rows], uint32_t row) {
    return row < rows ? &catalogue[row] : nullptr;
}

void add_input(RecipeBuilder& recipe, Dataspace& dataspace, uint32_t row) {
    VariableEntry* entry = entry_of(dataspace.inputs, row);
    recipe.add(entry, dataspace.input_recipe, kInputRows);
    if (entry != nullptr) {
        entry->selected = 1;
    }
}

void add_output_or_echoed_input(RecipeBuilder& recipe, Dataspace& dataspace, uint32_t row) {
    if ((row & VEXO_INPUT_ROW_MARKER) == VEXO_INPUT_ROW_MARKER) {
        add_input(recipe, dataspace, row - VEXO_INPUT_ROW_MARKER);
    } else {
        recipe.add(entry_of(dataspace.outputs, row), dataspace.output_recipe, kOutputRows);
    }
}

bool is_negative(Caller caller, uint32_t row, uint32_t position) {
    if (static_cast<int32_t>(row) >= 0) {
        return false;
    }
    report(caller, "%s Error: The varId[%u] of data was not found", caller.function, position);
    return true;
}

// Adds all rows by `add`. False when one of them is negative.
bool add_rows(Caller caller, RecipeBuilder& recipe, Dataspace& dataspace, const uint32_t* rows,
              uint32_t count, void (*add)(RecipeBuilder&, Dataspace&, uint32_t)) {
    while (recipe.position() < count) {
        const uint32_t row = rows[recipe.position()];
        if (is_negative(caller, row, recipe.position())) {
            return false;
        }
        add(recipe, dataspace, row);
    }
    return true;
}

int32_t send_recipe(Caller caller, const Registration& handle, wire::MessageWriter message,
                    uint32_t* recipe_id) {
    const int32_t result = request(caller, handle, message);
    if (result == 0) {
        *recipe_id = wire::recipe_id(response(*handle));
    }
    return result;
}

// The length of an output package, which the limit cuts.
uint32_t output_package_length(Caller caller, uint32_t sum) {
    const uint32_t length = sum + uint32_t{wire::kPackageHeader};
    if (length <= VEXO_MAX_OUTPUT_PACKAGE) {
        return length;
    }
    report_as(caller, "Error: recv_bytes > VEXO_RAW_MAX",
              "Error: recv_bytes(%u) > VEXO_RAW_MAX(%d)", length, VEXO_MAX_OUTPUT_PACKAGE);
    return VEXO_MAX_OUTPUT_PACKAGE;
}

}  // namespace

int32_t vexo_output_setup_send(uint32_t handle, int32_t count, uint32_t* rows, uint32_t header_word,
                               uint32_t* recipe_id) {
    const Caller caller{handle, __func__};
    const Registration found = find_or_record_null(caller);
    if (!found) {
        return -1;
    }
    if (count > static_cast<int32_t>(found->output_count)) {
        report_as(caller, "Error: output_vars_num < request_varnum",
                  "Error: output_vars_num(%u) < request_varnum(%d)", found->output_count, count);
    }
    const std::span<uint8_t> room = begin_message(caller, *found, Purpose::request);
    const auto most = static_cast<int32_t>(wire::output_recipe_room(room.size()));
    const auto entries = static_cast<uint16_t>(std::clamp(count, 0, most));
    wire::MessageWriter message = wire::output_recipe_request(room, header_word, entries);
    RecipeBuilder recipe(message);
    if (!add_rows(caller, recipe, *found, rows, entries, add_output_or_echoed_input)) {
        return VEXO_ERROR_NOT_FOUND;
    }
    shared(found->output_length)
        .store(output_package_length(caller, recipe.sum()), std::memory_order_relaxed);
    return send_recipe(caller, found, message, recipe_id);
}

int32_t vexo_input_setup_send(uint32_t handle, int32_t count, int32_t* rows, uint32_t* recipe_id) {
    const Caller caller{handle, __func__};
    const Registration found = find_or_record_null(caller);
    if (!found) {
        return -1;
    }
    const auto entries = static_cast<uint16_t>(count);
    if (entries > found->input_count) {
        report_as(caller, "Error: input_vars_num < varnum",
                  "Error: input_vars_num(%u) < varnum(%d)", found->input_count, entries);
        return -1;
    }
    wire::MessageWriter message =
        wire::input_recipe_request(begin_message(caller, *found, Purpose::request), entries);
    RecipeBuilder recipe(message);
    if (!add_rows(caller, recipe, *found, reinterpret_cast<const uint32_t*>(rows), entries,
                  add_input)) {
        return VEXO_ERROR_NOT_FOUND;
    }
    found->input_length = recipe.sum();
    if (recipe.sum() > VEXO_MAX_INPUT_VALUES) {
        report_as(caller, "Error: send_byte > SOCKET_RECEIVE_LEN",
                  "Error: send_byte(%u) > SOCKET_RECEIVE_LEN(%d)", recipe.sum(), kReceiveLength);
    }
    return send_recipe(caller, found, message, recipe_id);
}
