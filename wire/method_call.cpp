#include "wire/method_call.h"

#include <bit>
#include <limits>

namespace vexo::wire {

namespace {

constexpr size_t kMaxElements = std::numeric_limits<uint8_t>::max();

std::span<const uint8_t> bytes_of(std::span<const double> values) {
    return {reinterpret_cast<const uint8_t*>(values.data()), values.size_bytes()};
}

}  // namespace

Argument Argument::real(double value) {
    return {VEXO_TYPE_F64, std::bit_cast<uint64_t>(value), sizeof value};
}

Argument Argument::vector(std::span<const double, 6> values) {
    return value(VEXO_TYPE_6F64, bytes_of(values));
}

Argument Argument::array(std::span<const double> values) {
    return array(VEXO_TYPE_F64, bytes_of(values));
}

Argument Argument::value(uint8_t type, std::span<const uint8_t> bytes) {
    return {type, VEXO_TYPE_CHAR, bytes};
}

Argument Argument::array(uint8_t element_type, std::span<const uint8_t> elements) {
    return {VEXO_TYPE_ARRAY, element_type, elements};
}

bool Argument::fits() const {
    if (type_ == VEXO_TYPE_ARRAY) {
        const size_t width = type_width(element_type_);
        return width != 0 && bytes_.size() % width == 0 && elements() <= kMaxElements;
    }
    const size_t width = type_width(type_);
    return width != 0 && width == (scalar_width_ != 0 ? scalar_width_ : bytes_.size());
}

size_t Argument::elements() const {
    const size_t width = type_width(element_type_);
    return width == 0 ? 0 : bytes_.size() / width;
}

void Argument::write(MessageWriter& message) const {
    message.u8(type_);
    if (type_ == VEXO_TYPE_ARRAY) {
        message.u8(1).u8(static_cast<uint8_t>(elements())).u8(element_type_);
    }
    if (scalar_width_ != 0) {
        message.bytes({reinterpret_cast<const uint8_t*>(&scalar_), scalar_width_});
    } else {
        message.bytes(bytes_);
    }
}

MessageWriter method_call(std::span<uint8_t> buffer, uint16_t method,
                          std::span<const Argument> arguments) {
    MessageWriter message(buffer, Letter::method_call);
    size_t count = 0;
    for (const Argument& argument : arguments) {
        count += argument.counts();
    }
    message.u16(method).u8(static_cast<uint8_t>(count));
    for (const Argument& argument : arguments) {
        argument.write(message);
    }
    return message;
}

BitsReply bits_reply(std::span<const uint8_t> reply) {
    MessageReader reader(reply, kStatusOffset);
    const uint32_t status_word = reader.u32();
    return {status_word, reader.u64()};
}

}  // namespace vexo::wire
