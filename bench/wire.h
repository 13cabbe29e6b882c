// Messages and frames, written by hand: what the bare sides send, and what the controller answers.
#ifndef BENCH_WIRE_H
#define BENCH_WIRE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace bench {

using Bytes = std::vector<uint8_t>;
using Mac = std::array<uint8_t, 6>;

template <typename Number>
void append(Bytes& bytes, Number value) {
    const auto* first = reinterpret_cast<const uint8_t*>(&value);
    bytes.insert(bytes.end(), first, first + sizeof value);
}

template <typename Number>
Number load(const uint8_t* bytes) {
    Number value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

template <typename Number>
void store(uint8_t* bytes, Number value) {
    std::memcpy(bytes, &value, sizeof value);
}

// u16 length, letter, payload.
Bytes message(char letter, const Bytes& payload);

// The set-point that all servo benches send: six values, no vector.
constexpr size_t kSetPointSequence = 16;  // where its running number is
Bytes set_point(int form);

// The input package that all input benches send: six values for recipe 1.
Bytes input_package();

// Output packages: u16 length, 'U', recipe id, and then these values.
constexpr size_t kPackageTime = 4;      // u64, nanoseconds of the monotonic clock
constexpr size_t kPackageCounter = 12;  // u64
Bytes output_package(size_t size);

// Frames.
constexpr uint16_t kEtherType = 0xC815;
constexpr size_t kFrameHeader = 26;
constexpr size_t kFrameCode = 15;
constexpr size_t kFrameSequence = 20;
constexpr uint8_t kOutputCode = 144;
constexpr uint8_t kInputCode = 145;
constexpr uint8_t kServoCode = 146;
Bytes frame(const Mac& to, const Mac& from, uint8_t code, const Bytes& payload);
// Anew, after the payload has changed.
void seal(Bytes& frame);

}  // namespace bench

#endif
