// Messages on the wire: a bounded writer that builds them in place, and a bounded reader that takes
// them apart. All multi-byte fields are little-endian.
#ifndef CLIENT_MESSAGE_H
#define CLIENT_MESSAGE_H

#include <cstddef>
#include <cstdint>

namespace vexo {

constexpr size_t kMessageHeader = 3;  // u16 total length, u8 type letter
constexpr size_t kStatusOffset = 3;   // in a reply
constexpr size_t kReplyPayload = 7;   // where a reply's payload begins

uint16_t read_u16(const uint8_t* bytes);

// Builds one message. What does not fit is dropped, and the length word says what is there.
class MessageWriter {
public:
    MessageWriter(uint8_t* buffer, size_t capacity, char type);

    MessageWriter& u8(uint8_t value);
    MessageWriter& u16(uint16_t value);
    MessageWriter& u32(uint32_t value);
    MessageWriter& u64(uint64_t value);
    MessageWriter& f64(double value);
    MessageWriter& bytes(const void* data, size_t count);
    // Takes bytes into the message that the buffer happens to hold.
    MessageWriter& skip(size_t count);

    // Puts the length word in place and returns the length.
    size_t finish();

private:
    MessageWriter& little_endian(uint64_t value, size_t width);

    uint8_t* buffer_;
    size_t capacity_;
    size_t size_ = kMessageHeader;
};

// Reads one after another; beyond the end everything is zero.
class MessageReader {
public:
    MessageReader(const uint8_t* buffer, size_t size, size_t position)
        : buffer_(buffer), size_(size), position_(position) {}

    uint8_t u8();
    uint16_t u16();
    uint32_t u32();
    uint64_t u64();
    // Copies at most `capacity` of the next `count` bytes, and moves on by `count`. Returns how
    // many bytes were copied.
    size_t bytes(void* to, size_t capacity, size_t count);

private:
    uint64_t little_endian(size_t width);

    const uint8_t* buffer_;
    size_t size_;
    size_t position_;
};

}  // namespace vexo

#endif
