// Little-endian building and taking apart of messages.
#ifndef SIM_WIRE_H
#define SIM_WIRE_H

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>
#include <vector>

namespace sim {

using Bytes = std::vector<uint8_t>;
using BytesView = std::span<const uint8_t>;

static_assert(std::endian::native == std::endian::little,
              "the simulator copies numbers as the host holds them");

// Appends to a message.
class Writer {
public:
    explicit Writer(Bytes& out) : out_(out) {}

    template <typename T>
    requires std::is_arithmetic_v<T>
    void number(T value) {
        const size_t at = out_.size();
        out_.resize(at + sizeof value);
        std::memcpy(out_.data() + at, &value, sizeof value);
    }
    void bytes(BytesView data) {
        const size_t at = out_.size();
        out_.resize(at + data.size());
        std::copy(data.begin(), data.end(), out_.begin() + static_cast<ptrdiff_t>(at));
    }

private:
    Bytes& out_;
};

// Takes a message apart. The first read beyond the end spoils the reader: it and all later reads
// yield zeros, so that one look at ok() after the last read is enough.
class Reader {
public:
    explicit Reader(BytesView data) : data_(data) {}

    template <typename T>
    requires std::is_arithmetic_v<T> T number() {
        T value{};
        const BytesView source = bytes(sizeof value);
        if (ok_) {
            std::memcpy(&value, source.data(), sizeof value);
        }
        return value;
    }
    BytesView bytes(size_t count) {
        ok_ = ok_ && count <= data_.size();
        if (!ok_) {
            return {};
        }
        const BytesView result = data_.first(count);
        data_ = data_.subspan(count);
        return result;
    }
    bool ok() const { return ok_; }
    size_t left() const { return data_.size(); }
    // Everything was read, and nothing more than that.
    bool exhausted() const { return ok_ && data_.empty(); }

private:
    BytesView data_;
    bool ok_ = true;
};

// Overwrites the length word at the start of a message; a message too long for it keeps the low
// 16 bits.
inline void set_length_word(Bytes& message, size_t length) {
    const auto word = static_cast<uint16_t>(length);
    std::memcpy(message.data(), &word, sizeof word);
}

}  // namespace sim

#endif
