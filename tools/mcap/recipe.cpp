#include "tools/mcap/recipe.h"

#include <algorithm>
#include <cctype>
#include <set>
#include <sstream>
#include <stdexcept>

namespace mcap {
namespace {

constexpr const char* kRecipeKey = "vexo.recipe";
constexpr uint32_t kTextBytes = 255;
constexpr std::array<uint8_t, 4> kEncapsulation = {0, 1, 0, 0};  // plain CDR, little-endian

struct TypeRow {
    const char* name;
    const char* ros;
    Shape shape;
};

constexpr TypeRow kTypes[] = {
    {"char", "uint8", {VEXO_TYPE_CHAR, 1, 1}},
    {"bool", "bool", {VEXO_TYPE_BOOL, 1, 1}},
    {"u8", "uint8", {VEXO_TYPE_U8, 1, 1}},
    {"u16", "uint16", {VEXO_TYPE_U16, 1, 2}},
    {"u32", "uint32", {VEXO_TYPE_U32, 1, 4}},
    {"u64", "uint64", {VEXO_TYPE_U64, 1, 8}},
    {"i8", "int8", {VEXO_TYPE_I8, 1, 1}},
    {"i16", "int16", {VEXO_TYPE_I16, 1, 2}},
    {"i32", "int32", {VEXO_TYPE_I32, 1, 4}},
    {"i64", "int64", {VEXO_TYPE_I64, 1, 8}},
    {"f32", "float32", {VEXO_TYPE_F32, 1, 4}},
    {"f64", "float64", {VEXO_TYPE_F64, 1, 8}},
    {"f64x3", "float64[3]", {VEXO_TYPE_F64, 3, 8}},
    {"f64x6", "float64[6]", {VEXO_TYPE_F64, 6, 8}},
    {"f32x3", "float32[3]", {VEXO_TYPE_F32, 3, 4}},
    {"i32x6", "int32[6]", {VEXO_TYPE_I32, 6, 4}},
    {"u32x6", "uint32[6]", {VEXO_TYPE_U32, 6, 4}},
    {"f32x6", "float32[6]", {VEXO_TYPE_F32, 6, 4}},
    {"text", "string", {VEXO_TYPE_TEXT, 1, kTextBytes}},
};

// A name that is fit for a schema, and no other field's.
std::string schema_name(const std::string& name, std::set<std::string>& taken) {
    std::string fit = name;
    std::replace_if(
        fit.begin(), fit.end(),
        [](unsigned char letter) { return std::isalnum(letter) == 0 || letter > 127; }, '_');
    if (fit.empty() || std::isalpha(static_cast<unsigned char>(fit[0])) == 0) {
        fit.insert(0, "v_");
    }
    const std::string wanted = fit;
    for (int number = 2; !taken.insert(fit).second; ++number) {
        fit = wanted + '_' + std::to_string(number);
    }
    return fit;
}

// Values are aligned to their size, counted from behind the encapsulation.
size_t padding(size_t at, size_t size) {
    return (size - (at - kEncapsulation.size()) % size) % size;
}

void encode_text(const uint8_t* text, Bytes& cdr) {
    const auto length = static_cast<uint32_t>(std::find(text, text + kTextBytes, 0) - text);
    cdr.resize(cdr.size() + padding(cdr.size(), sizeof length));
    Packer pack(cdr);
    pack.number(length + 1).bytes(text, length).number(uint8_t{0});
}

bool decode_text(View& left, size_t& at, uint8_t* value) {
    Unpacker in(left);
    in.bytes(padding(at, sizeof(uint32_t)));
    const View text = in.bytes(in.number<uint32_t>());
    if (!in.ok() || text.empty() || text.size() > kTextBytes + 1) {
        return false;
    }
    std::memset(value, 0, kTextBytes);
    std::memcpy(value, text.data(), text.size() - 1);
    at += left.size() - in.left();
    left = left.last(in.left());
    return true;
}

}  // namespace

std::string_view type_name(uint32_t type) {
    return type < std::size(kTypes) ? kTypes[type].name : "";
}

std::optional<uint32_t> type_of_name(std::string_view name) {
    const auto row = std::find_if(std::begin(kTypes), std::end(kTypes),
                                  [&](const TypeRow& type) { return name == type.name; });
    return row != std::end(kTypes) ? std::optional(static_cast<uint32_t>(row - kTypes))
                                   : std::nullopt;
}

std::optional<Shape> shape_of(uint32_t type) {
    return type < std::size(kTypes) ? std::optional(kTypes[type].shape) : std::nullopt;
}

void Recipe::add(const std::string& name, uint32_t type) {
    const std::optional<Shape> shape = shape_of(type);
    if (!shape) {
        throw std::invalid_argument("The type of " + name + " is not known");
    }
    fields_.push_back({name, type, static_cast<uint32_t>(bytes_), *shape});
    bytes_ += shape->bytes();
}

size_t Recipe::most_cdr_bytes() const {
    return kEncapsulation.size() + bytes_ + fields_.size() * 8;
}

std::string Recipe::schema() const {
    std::set<std::string> taken;
    std::string text;
    for (const Field& field : fields_) {
        text += kTypes[field.type].ros;
        text += ' ' + schema_name(field.name, taken) + '\n';
    }
    return text;
}

std::string Recipe::to_text() const {
    std::string text;
    for (const Field& field : fields_) {
        text += std::string(type_name(field.type)) + ' ' + field.name + '\n';
    }
    return text;
}

Recipe Recipe::from_text(const std::string& text) {
    Recipe recipe;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const size_t space = std::min(line.find(' '), line.size());
        const auto type = type_of_name(std::string_view(line).substr(0, space));
        recipe.add(line.substr(std::min(space + 1, line.size())), type.value_or(UINT32_MAX));
    }
    return recipe;
}

void Recipe::encode(const uint8_t* values, Bytes& cdr) const {
    cdr.assign(kEncapsulation.begin(), kEncapsulation.end());
    for (const Field& field : fields_) {
        const uint8_t* value = values + field.offset;
        if (field.type == VEXO_TYPE_TEXT) {
            encode_text(value, cdr);
        } else if (field.type == VEXO_TYPE_BOOL) {
            cdr.push_back(*value != 0 ? 1 : 0);
        } else {
            cdr.resize(cdr.size() + padding(cdr.size(), field.shape.size));
            cdr.insert(cdr.end(), value, value + field.shape.bytes());
        }
    }
}

bool Recipe::decode(View cdr, uint8_t* values) const {
    if (cdr.size() < kEncapsulation.size() || cdr[1] != 1) {
        return false;
    }
    size_t at = kEncapsulation.size();
    View left = cdr.subspan(at);
    for (const Field& field : fields_) {
        uint8_t* value = values + field.offset;
        if (field.type == VEXO_TYPE_TEXT) {
            if (!decode_text(left, at, value)) {
                return false;
            }
            continue;
        }
        const size_t pad = padding(at, field.shape.size);
        const size_t size = field.shape.bytes();
        if (left.size() < pad + size) {
            return false;
        }
        std::memcpy(value, left.data() + pad, size);
        left = left.subspan(pad + size);
        at += pad + size;
    }
    return true;
}

Channel channel_of(const Recipe& recipe, const std::string& topic, Texts metadata) {
    metadata[kRecipeKey] = recipe.to_text();
    return {topic, "vexo_msgs/msg/Package", recipe.schema(), std::move(metadata)};
}

std::optional<Recipe> recipe_of(const Channel& channel) {
    const auto found = channel.metadata.find(kRecipeKey);
    if (found == channel.metadata.end() || channel.message_encoding != "cdr") {
        return std::nullopt;
    }
    return Recipe::from_text(found->second);
}

}  // namespace mcap
