// Servo set-points: calls of the controller's servo method with a running number.
#ifndef WIRE_SET_POINT_H
#define WIRE_SET_POINT_H

#include "wire/method_call.h"

namespace vexo::wire {

inline constexpr uint32_t kLastSequence = 100000;
inline constexpr size_t kVectorLength = 6;

// The number after `sequence`: 1 to 100000, then 1 again.
constexpr uint32_t next_sequence(uint32_t sequence) {
    return sequence >= kLastSequence ? 1 : sequence + 1;
}

struct SetPoint {
    uint16_t method;
    double value;
    uint32_t sequence;
    uint8_t flag;
    const double* vector;            // kVectorLength numbers, or null: left out
    std::span<const double> values;  // at most 255
};

// Protocol version 1: each value is an argument of its own, and the vector goes whenever there is
// one, whatever the flag. The argument count is taken modulo 256.
MessageWriter set_point_with_values(std::span<uint8_t> buffer, const SetPoint& point);

// Protocol version 2 and the raw path: the values are one array argument, and the vector goes only
// when the flag is not 0. An empty array takes the room of one value all the same, with whatever
// the buffer holds there.
MessageWriter set_point_with_array(std::span<uint8_t> buffer, const SetPoint& point);

}  // namespace vexo::wire

#endif
