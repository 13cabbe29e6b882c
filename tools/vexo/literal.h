// Values that users write, as the bytes of a type.
#ifndef TOOLS_VEXO_LITERAL_H
#define TOOLS_VEXO_LITERAL_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "session/session.h"

namespace tool {

using Bytes = std::vector<uint8_t>;

// The type of this name: "f64", "f64x6", "text".
std::optional<uint32_t> type_named(const std::string& name);

// One element, or characters. `of` begins a Failure's cause: the name of what the value is for.
Bytes packed_element(const std::string& of, uint32_t element, const std::string& text);

// The elements of "1,2,3", each packed.
std::vector<Bytes> packed_elements(const std::string& of, uint32_t element,
                                   const std::string& text);

// A value of a variable's type, an array's elements with commas between them.
Bytes packed_value(const VexoSessionVariable& field, const std::string& text);

// A method's argument, with the bytes it points to.
struct Argument {
    uint32_t type = 0;
    uint32_t element = 0;  // of an array
    uint32_t count = 0;    // of an array
    Bytes bytes;

    VexoSessionArgument view() const { return {type, element, count, 0, bytes.data()}; }
};

// "u8:1", "f64:1,2,3" (an array), "f64[]:1" (an array of one), "f64x6:1,2,3,4,5,6", "text:true";
// without a type what the text looks like: 1, 0.5, true, 1,2,3, and all else a text. `expected` is
// the type to give a text without one, if known.
Argument parse_argument(const std::string& text, std::optional<uint32_t> expected);

}  // namespace tool

#endif
