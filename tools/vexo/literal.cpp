#include "tools/vexo/literal.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "tools/vexo/failure.h"
#include "tools/vexo/values.h"

namespace tool {
namespace {

constexpr size_t kTextBytes = 255;

Failure unfit(const std::string& of, const std::string& cause, const std::string& remedy) {
    return Failure(Exit::failed, "wrong_type", of + ": " + cause, remedy);
}

Failure no_number(const std::string& of, uint32_t element, const std::string& text) {
    const bool real = element == VEXO_TYPE_F32 || element == VEXO_TYPE_F64;
    return unfit(of, '"' + text + "\" is no " + vexo_session_type_name(element),
                 element == VEXO_TYPE_BOOL ? "give 0, 1, false or true"
                 : real                    ? "give a finite number, such as 0.5"
                                           : "give a whole number, such as 12 or 0x0c");
}

template <typename T>
Failure out_of_range(const std::string& of, uint32_t element, const std::string& text) {
    using Limits = std::numeric_limits<T>;
    const auto limit = [](T value) {
        return std::is_integral_v<T> ? std::to_string(value) : number_text(value);
    };
    Failure failure(
        Exit::failed, "out_of_range",
        of + ": " + text + " is more or less than " + vexo_session_type_name(element) + " can hold",
        "give " + limit(Limits::lowest()) + " to " + limit(Limits::max()));
    return failure;
}

template <typename T>
std::from_chars_result read_number(const char* begin, const char* end, T& value) {
    if constexpr (std::is_integral_v<T>) {
        if (end - begin > 2 && begin[0] == '0' && (begin[1] | ' ') == 'x') {
            return std::from_chars(begin + 2, end, value, 16);
        }
    }
    return std::from_chars(begin, end, value);
}

// A minus that an unsigned type cannot hold is still a number.
bool is_whole_number(const std::string& text) {
    const size_t begin = text[0] == '-' ? 1 : 0;
    return text.size() > begin && text.find_first_not_of("0123456789", begin) == std::string::npos;
}

template <typename T>
Bytes packed_number(const std::string& of, uint32_t element, const std::string& text) {
    T value{};
    const char* end = text.data() + text.size();
    const auto [stop, error] = read_number(text.data(), end, value);
    if (error == std::errc::result_out_of_range ||
        (error != std::errc() && std::is_integral_v<T> && is_whole_number(text))) {
        throw out_of_range<T>(of, element, text);
    }
    bool good = error == std::errc() && stop == end;
    if constexpr (std::is_floating_point_v<T>) {
        good = good && std::isfinite(value);
    }
    if (!good) {
        throw no_number(of, element, text);
    }
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

Bytes packed_bool(const std::string& of, const std::string& text) {
    if (text == "1" || text == "true") {
        return {1};
    }
    if (text == "0" || text == "false") {
        return {0};
    }
    throw no_number(of, VEXO_TYPE_BOOL, text);
}

Bytes packed_text(const std::string& of, const std::string& text) {
    if (text.size() > kTextBytes) {
        throw unfit(of, "a text of " + std::to_string(text.size()) + " bytes is too long",
                    "give 255 bytes at most");
    }
    Bytes bytes(kTextBytes);
    std::memcpy(bytes.data(), text.data(), text.size());
    return bytes;
}

Bytes packed_character(const std::string& of, const std::string& text) {
    if (text.size() != 1) {
        throw unfit(of, '"' + text + "\" is no single character", "give one ASCII character");
    }
    return {static_cast<uint8_t>(text[0])};
}

std::vector<std::string> split(const std::string& text) {
    std::vector<std::string> parts;
    size_t begin = 0;
    for (size_t comma = text.find(','); comma != std::string::npos; comma = text.find(',', begin)) {
        parts.push_back(text.substr(begin, comma - begin));
        begin = comma + 1;
    }
    parts.push_back(text.substr(begin));
    return parts;
}

struct Shape {
    uint32_t element;
    uint32_t elements;
};

Shape shape_of(uint32_t type) {
    switch (type) {
        case VEXO_TYPE_3F64:
            return {VEXO_TYPE_F64, 3};
        case VEXO_TYPE_6F64:
            return {VEXO_TYPE_F64, 6};
        case VEXO_TYPE_3F32:
            return {VEXO_TYPE_F32, 3};
        case VEXO_TYPE_6I32:
            return {VEXO_TYPE_I32, 6};
        case VEXO_TYPE_6U32:
            return {VEXO_TYPE_U32, 6};
        case VEXO_TYPE_6F32:
            return {VEXO_TYPE_F32, 6};
        default:
            return {type, 1};
    }
}

Bytes packed_shape(const std::string& of, const Shape& shape, const std::string& text) {
    if (shape.elements == 1 || shape.element == VEXO_TYPE_TEXT) {
        return packed_element(of, shape.element, text);
    }
    const std::vector<Bytes> elements = packed_elements(of, shape.element, text);
    if (elements.size() != shape.elements) {
        throw unfit(of,
                    "it takes " + std::to_string(shape.elements) + " elements, not " +
                        std::to_string(elements.size()),
                    "give them with commas between them: 1,2,3");
    }
    Bytes bytes;
    for (const Bytes& element : elements) {
        bytes.insert(bytes.end(), element.begin(), element.end());
    }
    return bytes;
}

bool is_real_number(const std::string& text) {
    double value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && stop == end && std::isfinite(value);
}

// The type that holds a whole number: i32 if it can.
uint32_t type_of_whole(const std::string& text) {
    int64_t value = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc()) {
        return VEXO_TYPE_U64;
    }
    return value >= INT32_MIN && value <= INT32_MAX ? VEXO_TYPE_I32 : VEXO_TYPE_I64;
}

uint32_t type_that_looks_like(const std::string& text) {
    if (text == "true" || text == "false") {
        return VEXO_TYPE_BOOL;
    }
    if (is_whole_number(text)) {
        return type_of_whole(text);
    }
    return is_real_number(text) ? VEXO_TYPE_F64 : VEXO_TYPE_TEXT;
}

// The widest type of a list's elements; a text when one of them is no number.
uint32_t element_that_looks_like(const std::string& text) {
    uint32_t widest = VEXO_TYPE_I32;
    for (const std::string& part : split(text)) {
        const uint32_t type = type_that_looks_like(part);
        if (type == VEXO_TYPE_TEXT || type == VEXO_TYPE_BOOL) {
            return VEXO_TYPE_TEXT;
        }
        widest = std::max(widest, type);
    }
    return widest;
}

Argument array_of(uint32_t element, const std::string& text) {
    Argument argument;
    for (const Bytes& each : packed_elements(text, element, text)) {
        argument.bytes.insert(argument.bytes.end(), each.begin(), each.end());
        ++argument.count;
    }
    argument.type = VEXO_TYPE_ARRAY;
    argument.element = element;
    return argument;
}

Argument typed(uint32_t type, const std::string& text) {
    const Shape shape = shape_of(type);
    const bool list = text.find(',') != std::string::npos && shape.elements == 1 &&
                      type != VEXO_TYPE_TEXT && type != VEXO_TYPE_CHAR;
    return list ? array_of(type, text) : Argument{type, 0, 0, packed_shape(text, shape, text)};
}

}  // namespace

std::optional<uint32_t> type_named(const std::string& name) {
    for (uint32_t type = VEXO_TYPE_CHAR; type <= VEXO_TYPE_TEXT; ++type) {
        if (name == vexo_session_type_name(type)) {
            return type;
        }
    }
    return std::nullopt;
}

Bytes packed_element(const std::string& of, uint32_t element, const std::string& text) {
    switch (element) {
        case VEXO_TYPE_BOOL:
            return packed_bool(of, text);
        case VEXO_TYPE_U8:
            return packed_number<uint8_t>(of, element, text);
        case VEXO_TYPE_U16:
            return packed_number<uint16_t>(of, element, text);
        case VEXO_TYPE_U32:
            return packed_number<uint32_t>(of, element, text);
        case VEXO_TYPE_U64:
            return packed_number<uint64_t>(of, element, text);
        case VEXO_TYPE_I8:
            return packed_number<int8_t>(of, element, text);
        case VEXO_TYPE_I16:
            return packed_number<int16_t>(of, element, text);
        case VEXO_TYPE_I32:
            return packed_number<int32_t>(of, element, text);
        case VEXO_TYPE_I64:
            return packed_number<int64_t>(of, element, text);
        case VEXO_TYPE_F32:
            return packed_number<float>(of, element, text);
        case VEXO_TYPE_F64:
            return packed_number<double>(of, element, text);
        case VEXO_TYPE_TEXT:
            return packed_text(of, text);
        default:
            return packed_character(of, text);
    }
}

std::vector<Bytes> packed_elements(const std::string& of, uint32_t element,
                                   const std::string& text) {
    std::vector<Bytes> elements;
    for (const std::string& part : split(text)) {
        elements.push_back(packed_element(of, element, part));
    }
    return elements;
}

Bytes packed_value(const VexoSessionVariable& field, const std::string& text) {
    return packed_shape(field.name, shape_of(field.type), text);
}

Argument parse_argument(const std::string& text, std::optional<uint32_t> expected) {
    const size_t colon = text.find(':');
    if (colon != std::string::npos) {
        const std::string name = text.substr(0, colon);
        const std::string value = text.substr(colon + 1);
        if (const auto type = type_named(name)) {
            return typed(*type, value);
        }
        const bool array = name.size() > 2 && name.compare(name.size() - 2, 2, "[]") == 0;
        if (const auto element =
                array ? type_named(name.substr(0, name.size() - 2)) : std::nullopt) {
            return array_of(*element, value);
        }
    }
    if (expected) {
        return typed(*expected, text);
    }
    return typed(text.find(',') != std::string::npos ? element_that_looks_like(text)
                                                     : type_that_looks_like(text),
                 text);
}

}  // namespace tool
