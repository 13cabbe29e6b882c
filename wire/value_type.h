// What a type code says of a value: of what elements it is made, and how many bytes it takes.
#ifndef WIRE_VALUE_TYPE_H
#define WIRE_VALUE_TYPE_H

#include <cstddef>
#include <cstdint>

#include "wire/type_codes.h"

namespace vexo::wire {

enum class Element : uint8_t { none, character, boolean, unsigned_integer, signed_integer, real };

struct ValueType {
    Element element = Element::none;
    uint8_t element_width = 0;  // bytes
    uint8_t count = 0;          // elements

    constexpr size_t width() const { return size_t{element_width} * count; }
    constexpr bool operator==(const ValueType&) const = default;
};

// No elements for a code that variables do not have, VEXO_TYPE_ARRAY among them.
constexpr ValueType value_type(uint8_t code) {
    constexpr ValueType kTypes[] = {
        {Element::character, 1, 1},         // VEXO_TYPE_CHAR
        {Element::boolean, 1, 1},           // VEXO_TYPE_BOOL
        {Element::unsigned_integer, 1, 1},  // VEXO_TYPE_U8
        {Element::unsigned_integer, 2, 1},  // VEXO_TYPE_U16
        {Element::unsigned_integer, 4, 1},  // VEXO_TYPE_U32
        {Element::unsigned_integer, 8, 1},  // VEXO_TYPE_U64
        {Element::signed_integer, 1, 1},    // VEXO_TYPE_I8
        {Element::signed_integer, 2, 1},    // VEXO_TYPE_I16
        {Element::signed_integer, 4, 1},    // VEXO_TYPE_I32
        {Element::signed_integer, 8, 1},    // VEXO_TYPE_I64
        {Element::real, 4, 1},              // VEXO_TYPE_F32
        {Element::real, 8, 1},              // VEXO_TYPE_F64
        {Element::real, 8, 3},              // VEXO_TYPE_3F64
        {Element::real, 8, 6},              // VEXO_TYPE_6F64
        {Element::real, 4, 3},              // VEXO_TYPE_3F32
        {Element::signed_integer, 4, 6},    // VEXO_TYPE_6I32
        {Element::unsigned_integer, 4, 6},  // VEXO_TYPE_6U32
        {Element::real, 4, 6},              // VEXO_TYPE_6F32
        {Element::character, 1, 255},       // VEXO_TYPE_TEXT
    };
    static_assert(sizeof kTypes / sizeof *kTypes == VEXO_TYPE_TEXT + 1);
    return code <= VEXO_TYPE_TEXT ? kTypes[code] : ValueType{};
}

constexpr size_t type_width(uint8_t code) {
    return value_type(code).width();
}

}  // namespace vexo::wire

#endif
