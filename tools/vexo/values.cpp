#include "tools/vexo/values.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>

namespace tool {
namespace {

constexpr size_t kMostElements = 255;

template <typename T>
std::string shortest(T value) {
    char text[40];
    return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

std::string characters_of(const VexoSessionVariable& field, const void* record) {
    char text[256] = {};
    if (field.type == VEXO_TYPE_TEXT) {
        vexo_session_get_text(&field, record, text, sizeof text);
    } else {
        text[0] = *(static_cast<const char*>(record) + field.offset);
    }
    return text;
}

bool is_characters(const VexoSessionVariable& field) {
    return field.element == VEXO_TYPE_CHAR;
}

bool is_real(const VexoSessionVariable& field) {
    return field.element == VEXO_TYPE_F32 || field.element == VEXO_TYPE_F64;
}

std::vector<double> reals_of(const VexoSessionVariable& field, const void* record) {
    std::vector<double> values(std::min<size_t>(field.elements, kMostElements));
    vexo_session_get_f64(&field, record, values.data(), static_cast<uint32_t>(values.size()));
    return values;
}

std::vector<int64_t> integers_of(const VexoSessionVariable& field, const void* record) {
    std::vector<int64_t> values(std::min<size_t>(field.elements, kMostElements));
    vexo_session_get_i64(&field, record, values.data(), static_cast<uint32_t>(values.size()));
    return values;
}

std::string real_text(const VexoSessionVariable& field, double value) {
    return field.element == VEXO_TYPE_F32 ? shortest(static_cast<float>(value)) : shortest(value);
}

std::string integer_text(const VexoSessionVariable& field, int64_t value) {
    if (field.element == VEXO_TYPE_BOOL) {
        return value != 0 ? "true" : "false";
    }
    return field.element == VEXO_TYPE_U64 ? shortest(static_cast<uint64_t>(value))
                                          : shortest(value);
}

// A float has fewer digits than the double that is equal to it.
Json real_json(const VexoSessionVariable& field, double value) {
    return field.element == VEXO_TYPE_F32 ? std::strtod(real_text(field, value).c_str(), nullptr)
                                          : value;
}

Json integer_json(const VexoSessionVariable& field, int64_t value) {
    if (field.element == VEXO_TYPE_BOOL) {
        return value != 0;
    }
    return field.element == VEXO_TYPE_U64 ? Json(static_cast<uint64_t>(value)) : Json(value);
}

template <typename T, typename Convert>
Json array_or_value(const VexoSessionVariable& field, const std::vector<T>& values,
                    Convert convert) {
    Json array = Json::array();
    for (const T value : values) {
        array.push_back(convert(field, value));
    }
    return array.size() == 1 ? array[0] : array;
}

}  // namespace

std::string counted(uint64_t count, const char* noun) {
    return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

std::string number_text(double value) {
    return shortest(value);
}

std::vector<std::string> elements_of(const VexoSessionVariable& field, const void* record) {
    std::vector<std::string> elements;
    if (is_characters(field)) {
        std::string text = characters_of(field, record);
        std::replace_if(
            text.begin(), text.end(),
            [](char each) { return static_cast<unsigned char>(each) < ' ' || each == '\x7f'; },
            '?');
        elements.push_back(text);
    } else if (is_real(field)) {
        for (const double value : reals_of(field, record)) {
            elements.push_back(real_text(field, value));
        }
    } else {
        for (const int64_t value : integers_of(field, record)) {
            elements.push_back(integer_text(field, value));
        }
    }
    return elements;
}

std::string text_of(const VexoSessionVariable& field, const void* record) {
    std::string text;
    for (const std::string& element : elements_of(field, record)) {
        text += (text.empty() ? "" : ",") + element;
    }
    return text;
}

Json json_of(const VexoSessionVariable& field, const void* record) {
    if (is_characters(field)) {
        return characters_of(field, record);
    }
    return is_real(field) ? array_or_value(field, reals_of(field, record), real_json)
                          : array_or_value(field, integers_of(field, record), integer_json);
}

}  // namespace tool
