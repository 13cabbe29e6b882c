// Calls of the controller's methods: u16 method id, u8 argument count, then each argument as a type
// code and a value.
#ifndef WIRE_METHOD_CALL_H
#define WIRE_METHOD_CALL_H

#include "wire/message.h"
#include "wire/value_type.h"

namespace vexo::wire {

// A typed argument. Longer values are not copied: they stay the caller's until the call is built.
class Argument {
public:
    static Argument flag(uint8_t value) { return {VEXO_TYPE_BOOL, value, sizeof value}; }
    static Argument byte(uint8_t value) { return {VEXO_TYPE_U8, value, sizeof value}; }
    static Argument u32(uint32_t value) { return {VEXO_TYPE_U32, value, sizeof value}; }
    static Argument real(double value);
    static Argument vector(std::span<const double, 6> values);
    static Argument array(std::span<const double> values);

    // A value of any type, and an array of elements of any type, as their bytes. They count only
    // when their sizes fit the type: a value as wide as it is, an array of at most 255 elements
    // and of whole ones.
    static Argument value(uint8_t type, std::span<const uint8_t> bytes);
    static Argument array(uint8_t element_type, std::span<const uint8_t> elements);

    bool fits() const;
    // As how many arguments the controller counts it: an array as two, as in the set-points.
    size_t counts() const { return type_ == VEXO_TYPE_ARRAY ? 2 : 1; }
    void write(MessageWriter& message) const;

private:
    Argument(uint8_t type, uint64_t scalar, uint8_t width)
        : type_(type), scalar_width_(width), scalar_(scalar) {}
    Argument(uint8_t type, uint8_t element_type, std::span<const uint8_t> bytes)
        : type_(type), element_type_(element_type), bytes_(bytes) {}

    size_t elements() const;

    uint8_t type_;
    uint8_t element_type_ = 0;  // of an array
    uint8_t scalar_width_ = 0;
    uint64_t scalar_ = 0;
    std::span<const uint8_t> bytes_;
};

MessageWriter method_call(std::span<uint8_t> buffer, uint16_t method,
                          std::span<const Argument> arguments);

// What a call that reads a bank of digital signals answers.
struct BitsReply {
    uint32_t status_word;  // the status and the three bytes behind it
    uint64_t bits;
};
BitsReply bits_reply(std::span<const uint8_t> reply);

}  // namespace vexo::wire

#endif
