// Messages: a bounded writer that builds them in place, and a bounded reader that takes them apart.
// u16 total length, u8 letter, then the payload; all multi-byte fields are little-endian.
#ifndef WIRE_MESSAGE_H
#define WIRE_MESSAGE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "wire/protocol.h"

namespace vexo::wire {

inline constexpr size_t kMessageHeader = 3;
inline constexpr size_t kStatusOffset = 3;  // in a reply; three bytes without a meaning follow
inline constexpr size_t kReplyPayload = 7;

// Builds one message. What does not fit is dropped, and the length word says what is there.
class MessageWriter {
public:
    MessageWriter(std::span<uint8_t> buffer, Letter letter);

    MessageWriter& u8(uint8_t value);
    MessageWriter& u16(uint16_t value);
    MessageWriter& u32(uint32_t value);
    MessageWriter& u64(uint64_t value);
    MessageWriter& f64(double value);
    MessageWriter& bytes(std::span<const uint8_t> data);
    MessageWriter& reals(std::span<const double> values);
    // Takes bytes into the message that the buffer happens to hold.
    MessageWriter& skip(size_t count);

    // Puts the length word in place and returns the message.
    std::span<const uint8_t> finish();

    // Whether everything has had its room.
    bool ok() const { return ok_; }

private:
    MessageWriter& little_endian(uint64_t value, size_t width);
    size_t take(size_t count);

    std::span<uint8_t> buffer_;
    size_t size_ = 0;
    bool ok_ = true;
};

// Reads one field after another. What lies beyond the end reads as zero, and ok() says so from then
// on.
class MessageReader {
public:
    explicit MessageReader(std::span<const uint8_t> bytes, size_t position = 0)
        : bytes_(bytes), position_(position) {}

    uint8_t u8();
    uint16_t u16();
    uint32_t u32();
    uint64_t u64();
    // What is there of the next `count` bytes; moves on by `count`.
    std::span<const uint8_t> bytes(size_t count);
    // A text behind its length byte.
    std::string_view text();

    bool ok() const { return ok_; }

private:
    uint64_t little_endian(size_t width);

    std::span<const uint8_t> bytes_;
    size_t position_;
    bool ok_ = true;
};

struct ReplyHeader {
    uint16_t length;  // header included
    uint8_t letter;
    uint8_t status;  // 0: accepted
};

// Of bytes that are not there, all three give 0.
uint16_t message_length(std::span<const uint8_t> message);
uint8_t reply_status(std::span<const uint8_t> reply);
ReplyHeader reply_header(std::span<const uint8_t> reply);

// A reader at the payload of a reply.
MessageReader reply_payload(std::span<const uint8_t> reply);

}  // namespace vexo::wire

#endif
