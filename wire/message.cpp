#include "wire/message.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>

namespace vexo::wire {

namespace {

// Numbers are copied as they lie in memory.
static_assert(std::endian::native == std::endian::little);

constexpr size_t kMaxMessage = std::numeric_limits<uint16_t>::max();

}  // namespace

MessageWriter::MessageWriter(std::span<uint8_t> buffer, Letter letter)
    : buffer_(buffer.first(std::min(buffer.size(), kMaxMessage))) {
    skip(kMessageHeader - sizeof letter);
    u8(static_cast<uint8_t>(letter));
}

MessageWriter& MessageWriter::u8(uint8_t value) {
    return little_endian(value, 1);
}

MessageWriter& MessageWriter::u16(uint16_t value) {
    return little_endian(value, 2);
}

MessageWriter& MessageWriter::u32(uint32_t value) {
    return little_endian(value, 4);
}

MessageWriter& MessageWriter::u64(uint64_t value) {
    return little_endian(value, 8);
}

MessageWriter& MessageWriter::f64(double value) {
    return little_endian(std::bit_cast<uint64_t>(value), 8);
}

MessageWriter& MessageWriter::bytes(std::span<const uint8_t> data) {
    uint8_t* const place = buffer_.data() + size_;
    if (const size_t taken = take(data.size()); taken > 0) {
        std::memcpy(place, data.data(), taken);
    }
    return *this;
}

MessageWriter& MessageWriter::reals(std::span<const double> values) {
    return bytes({reinterpret_cast<const uint8_t*>(values.data()), values.size_bytes()});
}

MessageWriter& MessageWriter::skip(size_t count) {
    take(count);
    return *this;
}

std::span<const uint8_t> MessageWriter::finish() {
    if (size_ >= sizeof(uint16_t)) {
        buffer_[0] = static_cast<uint8_t>(size_);
        buffer_[1] = static_cast<uint8_t>(size_ >> 8);
    }
    return buffer_.first(size_);
}

MessageWriter& MessageWriter::little_endian(uint64_t value, size_t width) {
    return bytes({reinterpret_cast<const uint8_t*>(&value), width});
}

// Moves on by as many bytes as there is room for. Returns how many.
size_t MessageWriter::take(size_t count) {
    const size_t taken = std::min(count, buffer_.size() - size_);
    ok_ = ok_ && taken == count;
    size_ += taken;
    return taken;
}

uint8_t MessageReader::u8() {
    return static_cast<uint8_t>(little_endian(1));
}

uint16_t MessageReader::u16() {
    return static_cast<uint16_t>(little_endian(2));
}

uint32_t MessageReader::u32() {
    return static_cast<uint32_t>(little_endian(4));
}

uint64_t MessageReader::u64() {
    return little_endian(8);
}

std::span<const uint8_t> MessageReader::bytes(size_t count) {
    const auto rest = bytes_.subspan(std::min(position_, bytes_.size()));
    const auto there = rest.first(std::min(count, rest.size()));
    ok_ = ok_ && there.size() == count;
    position_ += count;
    return there;
}

std::string_view MessageReader::text() {
    const uint8_t length = u8();
    const auto characters = bytes(length);
    return {reinterpret_cast<const char*>(characters.data()), characters.size()};
}

uint64_t MessageReader::little_endian(size_t width) {
    uint64_t value = 0;
    const auto there = bytes(width);
    if (!there.empty()) {
        std::memcpy(&value, there.data(), there.size());
    }
    return value;
}

uint16_t message_length(std::span<const uint8_t> message) {
    return MessageReader(message).u16();
}

uint8_t reply_status(std::span<const uint8_t> reply) {
    return MessageReader(reply, kStatusOffset).u8();
}

ReplyHeader reply_header(std::span<const uint8_t> reply) {
    MessageReader reader(reply);
    const uint16_t length = reader.u16();
    const uint8_t letter = reader.u8();
    return {length, letter, reader.u8()};
}

MessageReader reply_payload(std::span<const uint8_t> reply) {
    return MessageReader(reply, kReplyPayload);
}

}  // namespace vexo::wire
