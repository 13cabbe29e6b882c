// What a controller's packages consist of, and their values in the form that recordings have: CDR,
// with a ros2msg text as the schema. Names and types as the controller gives them go along as text.
#ifndef TOOLS_MCAP_RECIPE_H
#define TOOLS_MCAP_RECIPE_H

#include <optional>

#include "tools/mcap/record.h"
#include "wire/type_codes.h"

namespace mcap {

// "f64x6" and so on, as the tools call types; empty for other numbers.
std::string_view type_name(uint32_t type);
std::optional<uint32_t> type_of_name(std::string_view name);

// What an element of a type is, and how many a value has.
struct Shape {
    uint32_t element;   // a scalar type, or TEXT
    uint32_t elements;  // of this type; 1 for a text
    uint32_t size;      // of an element in bytes; 255 for a text
    uint32_t bytes() const { return elements * size; }
};
// Nothing for numbers that are no type of a variable.
std::optional<Shape> shape_of(uint32_t type);

struct Field {
    std::string name;
    uint32_t type;    // a VexoType
    uint32_t offset;  // of the value in a package
    Shape shape;
};

class Recipe {
public:
    // Fields one behind the other, packed. Throws std::invalid_argument for what is no type.
    void add(const std::string& name, uint32_t type);

    const std::vector<Field>& fields() const { return fields_; }
    size_t bytes() const { return bytes_; }  // of a package's values
    size_t most_cdr_bytes() const;

    // The fields' names are fit for it: a letter, then letters, digits and underscores.
    std::string schema() const;

    // A line for each field: its name and its type.
    std::string to_text() const;
    static Recipe from_text(const std::string& text);

    // A package's values as CDR, in place of what `cdr` held. A boolean is 0 or 1 there, and a text
    // ends at its zero.
    void encode(const uint8_t* values, Bytes& cdr) const;
    // The way back. False when it does not fit the recipe.
    bool decode(View cdr, uint8_t* values) const;

private:
    std::vector<Field> fields_;
    size_t bytes_ = 0;
};

// The channel of such packages. The recipe stands in its metadata.
Channel channel_of(const Recipe& recipe, const std::string& topic, Texts metadata = {});
// Nothing when it was not made by channel_of().
std::optional<Recipe> recipe_of(const Channel& channel);

}  // namespace mcap

#endif
