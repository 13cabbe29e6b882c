#include "session/values.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#include "session/error.h"
#include "wire/value_type.h"

namespace vexo::session {

namespace {

template <typename T>
T load(const uint8_t* from) {
    T value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

template <typename T>
void store(uint8_t* to, T value) {
    std::memcpy(to, &value, sizeof value);
}

// Calls `act` with a value of the C++ type of an element.
template <typename Act>
auto with_type(uint32_t element, Act act) {
    switch (element) {
        case VEXO_TYPE_U16:
            return act(uint16_t{});
        case VEXO_TYPE_U32:
            return act(uint32_t{});
        case VEXO_TYPE_U64:
            return act(uint64_t{});
        case VEXO_TYPE_I8:
            return act(int8_t{});
        case VEXO_TYPE_I16:
            return act(int16_t{});
        case VEXO_TYPE_I32:
            return act(int32_t{});
        case VEXO_TYPE_I64:
            return act(int64_t{});
        case VEXO_TYPE_F32:
            return act(float{});
        case VEXO_TYPE_F64:
            return act(double{});
        default:
            return act(uint8_t{});
    }
}

bool fits_real(double value, float) {
    return !std::isfinite(value) || std::abs(value) <= double{std::numeric_limits<float>::max()};
}

bool fits_real(double, double) {
    return true;
}

// The limits of the widest types are no doubles themselves; the power of two above them is.
template <typename T>
bool fits_real(double value, T) {
    const double above = std::ldexp(1.0, std::numeric_limits<T>::digits);
    const double least = std::numeric_limits<T>::is_signed ? -above : 0.0;
    return value >= least && value < above && value == std::trunc(value);
}

template <typename T>
bool fits_whole(int64_t value, T) {
    if constexpr (std::is_floating_point_v<T>) {
        return std::abs(static_cast<double>(value)) <=
               std::ldexp(1.0, std::numeric_limits<T>::digits);
    } else {
        return std::in_range<T>(value);
    }
}

}  // namespace

bool is_text(const VexoSessionVariable& field) {
    return field.type == VEXO_TYPE_TEXT;
}

bool is_real(const VexoSessionVariable& field) {
    return field.element == VEXO_TYPE_F32 || field.element == VEXO_TYPE_F64;
}

bool is_number(const VexoSessionVariable& field) {
    return field.elements == 1 && field.type != VEXO_TYPE_CHAR;
}

double real_value(const VexoSessionVariable& field, const uint8_t* element) {
    return with_type(field.element, [element](auto type) {
        return static_cast<double>(load<decltype(type)>(element));
    });
}

int64_t whole_value(const VexoSessionVariable& field, const uint8_t* element) {
    return with_type(field.element, [element](auto type) {
        return static_cast<int64_t>(load<decltype(type)>(element));
    });
}

bool put_real(const VexoSessionVariable& field, uint8_t* element, double value) {
    if (field.element == VEXO_TYPE_BOOL && value != 0 && value != 1) {
        return false;
    }
    return with_type(field.element, [=](auto type) {
        const bool fits = fits_real(value, type);
        if (fits) {
            store(element, static_cast<decltype(type)>(value));
        }
        return fits;
    });
}

bool put_whole(const VexoSessionVariable& field, uint8_t* element, int64_t value) {
    if (field.element == VEXO_TYPE_BOOL && value != 0 && value != 1) {
        return false;
    }
    return with_type(field.element, [=](auto type) {
        const bool fits = fits_whole(value, type);
        if (fits) {
            store(element, static_cast<decltype(type)>(value));
        }
        return fits;
    });
}

}  // namespace vexo::session

using namespace vexo::session;

namespace {

const uint8_t* first_element(const VexoSessionVariable& field, const void* record) {
    return static_cast<const uint8_t*>(record) + field.offset;
}

uint32_t element_width(const VexoSessionVariable& field) {
    return field.elements != 0 ? field.bytes / field.elements : 0;
}

int32_t wrong_type(const VexoSessionVariable& field, const char* wanted) {
    return tell(VEXO_SESSION_WRONG_TYPE, "\"%.255s\" has the type %s, which is no %s", field.name,
                vexo_session_type_name(field.type), wanted);
}

template <typename T, typename Read>
int32_t read_elements(const VexoSessionVariable& field, const void* record, T* values,
                      uint32_t capacity, Read read) {
    const uint32_t count = std::min(capacity, field.elements);
    const uint8_t* element = first_element(field, record);
    for (uint32_t i = 0; i < count; ++i) {
        values[i] = read(field, element + size_t{i} * element_width(field));
    }
    return static_cast<int32_t>(count);
}

}  // namespace

extern "C" int32_t vexo_session_get_f64(const VexoSessionVariable* field, const void* record,
                                        double* values, uint32_t capacity) {
    if (field == nullptr || record == nullptr || (values == nullptr && capacity > 0)) {
        return tell_null("an argument");
    }
    return is_text(*field) ? wrong_type(*field, "number")
                           : read_elements(*field, record, values, capacity, real_value);
}

extern "C" int32_t vexo_session_get_i64(const VexoSessionVariable* field, const void* record,
                                        int64_t* values, uint32_t capacity) {
    if (field == nullptr || record == nullptr || (values == nullptr && capacity > 0)) {
        return tell_null("an argument");
    }
    return is_text(*field) || is_real(*field)
               ? wrong_type(*field, "whole number")
               : read_elements(*field, record, values, capacity, whole_value);
}

extern "C" int32_t vexo_session_get_text(const VexoSessionVariable* field, const void* record,
                                         char* text, uint32_t capacity) {
    if (field == nullptr || record == nullptr || text == nullptr || capacity == 0) {
        return tell_null("an argument");
    }
    if (!is_text(*field)) {
        return wrong_type(*field, "text");
    }
    const auto* from = reinterpret_cast<const char*>(first_element(*field, record));
    const size_t length = strnlen(from, std::min(field->bytes, capacity - 1));
    std::memcpy(text, from, length);
    text[length] = '\0';
    return static_cast<int32_t>(length);
}

extern "C" const char* vexo_session_type_name(uint32_t type) {
    constexpr const char* kNames[] = {"char",  "bool",  "u8",    "u16",   "u32",  "u64",   "i8",
                                      "i16",   "i32",   "i64",   "f32",   "f64",  "f64x3", "f64x6",
                                      "f32x3", "i32x6", "u32x6", "f32x6", "text", "array"};
    return type <= VEXO_TYPE_ARRAY ? kNames[type] : "unknown";
}
