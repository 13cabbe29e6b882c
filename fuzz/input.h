// What every fuzz target needs: its input in typed pieces, and a check that ends the process.
#ifndef FUZZ_INPUT_H
#define FUZZ_INPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string_view>

namespace fuzz {

using Span = std::span<const uint8_t>;

// Takes an input apart from the front. What is not there reads as zero or empty.
class Input {
public:
    Input(const uint8_t* data, size_t size) : left_(data, size) {}

    uint8_t u8() { return static_cast<uint8_t>(little_endian(1)); }
    uint16_t u16() { return static_cast<uint16_t>(little_endian(2)); }
    uint32_t u32() { return little_endian(4); }
    Span take(size_t count) {
        const Span taken = left_.first(std::min(count, left_.size()));
        left_ = left_.subspan(taken.size());
        return taken;
    }
    Span rest() { return take(left_.size()); }
    bool empty() const { return left_.empty(); }

private:
    uint32_t little_endian(size_t width) {
        uint32_t value = 0;
        unsigned shift = 0;
        for (const uint8_t byte : take(width)) {
            value |= uint32_t{byte} << shift;
            shift += 8;
        }
        return value;
    }

    Span left_;
};

inline bool same_bytes(std::string_view text, Span bytes) {
    return text == std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

inline void check(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}

}  // namespace fuzz

#endif
