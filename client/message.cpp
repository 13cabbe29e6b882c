#include "client/message.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace vexo {

uint16_t read_u16(const uint8_t* bytes) {
    return static_cast<uint16_t>(bytes[0] | bytes[1] << 8);
}

MessageWriter::MessageWriter(uint8_t* buffer, size_t capacity, char type)
    : buffer_(buffer), capacity_(capacity) {
    buffer_[2] = static_cast<uint8_t>(type);
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

MessageWriter& MessageWriter::bytes(const void* data, size_t count) {
    const size_t taken = std::min(count, capacity_ - size_);
    if (taken > 0) {
        std::memcpy(buffer_ + size_, data, taken);
    }
    size_ += taken;
    return *this;
}

MessageWriter& MessageWriter::skip(size_t count) {
    size_ += std::min(count, capacity_ - size_);
    return *this;
}

size_t MessageWriter::finish() {
    buffer_[0] = static_cast<uint8_t>(size_);
    buffer_[1] = static_cast<uint8_t>(size_ >> 8);
    return size_;
}

MessageWriter& MessageWriter::little_endian(uint64_t value, size_t width) {
    static_assert(std::endian::native == std::endian::little);
    return bytes(&value, width);
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

size_t MessageReader::bytes(void* to, size_t capacity, size_t count) {
    const size_t there = std::min(count, size_ - std::min(position_, size_));
    const size_t copied = std::min(there, capacity);
    std::memcpy(to, buffer_ + std::min(position_, size_), copied);
    position_ += count;
    return copied;
}

uint64_t MessageReader::little_endian(size_t width) {
    uint64_t value = 0;
    bytes(&value, sizeof value, width);
    return value;
}

}  // namespace vexo
