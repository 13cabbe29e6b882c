#include "tools/mcap/crc32.h"

#include <array>
#include <cstring>

namespace mcap {
namespace {

using Tables = std::array<std::array<uint32_t, 256>, 8>;

// Table k has what a byte comes to that k other bytes follow, so that eight go in one step.
constexpr Tables make_tables() {
    Tables tables{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t value = byte;
        for (int bit = 0; bit < 8; ++bit) {
            value = (value >> 1) ^ ((value & 1) != 0 ? 0xEDB88320U : 0);
        }
        tables[0][byte] = value;
    }
    for (size_t k = 1; k < tables.size(); ++k) {
        for (size_t byte = 0; byte < 256; ++byte) {
            const uint32_t one_less = tables[k - 1][byte];
            tables[k][byte] = (one_less >> 8) ^ tables[0][one_less & 0xFF];
        }
    }
    return tables;
}

constexpr Tables kTables = make_tables();

uint32_t eight_bytes(const uint8_t* bytes, uint32_t value) {
    uint32_t low = 0;
    uint32_t high = 0;
    std::memcpy(&low, bytes, 4);
    std::memcpy(&high, bytes + 4, 4);
    low ^= value;
    return kTables[7][low & 0xFF] ^ kTables[6][low >> 8 & 0xFF] ^ kTables[5][low >> 16 & 0xFF] ^
           kTables[4][low >> 24] ^ kTables[3][high & 0xFF] ^ kTables[2][high >> 8 & 0xFF] ^
           kTables[1][high >> 16 & 0xFF] ^ kTables[0][high >> 24];
}

}  // namespace

uint32_t crc32(std::span<const uint8_t> data, uint32_t before) {
    uint32_t value = ~before;
    while (data.size() >= 8) {
        value = eight_bytes(data.data(), value);
        data = data.subspan(8);
    }
    for (const uint8_t byte : data) {
        value = (value >> 8) ^ kTables[0][(value ^ byte) & 0xFF];
    }
    return ~value;
}

}  // namespace mcap
