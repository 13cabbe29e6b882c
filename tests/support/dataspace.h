// The dataspace as tests of the public interface see it: a block of bytes.
#ifndef TESTS_SUPPORT_DATASPACE_H
#define TESTS_SUPPORT_DATASPACE_H

#include <cstddef>
#include <cstdint>

namespace test {

// Where members of the dataspace lie.
constexpr size_t kVersionWordOffset = 4;
constexpr size_t kNackOffset = 8;
constexpr size_t kOutputCountOffset = 12;
constexpr size_t kInputCountOffset = 16;
constexpr size_t kMethodCountOffset = 20;
constexpr size_t kPageSizeOffset = 24;
constexpr size_t kServoCounterOffset = 28;
constexpr size_t kOutputsOffset = 32;
constexpr size_t kInputsOffset = kOutputsOffset + 2000 * 108;
constexpr size_t kMethodsOffset = kInputsOffset + 1000 * 108;
constexpr size_t kLinkModeOffset = kMethodsOffset + 3000 * 104;
constexpr size_t kStreamingOffset = kLinkModeOffset + 1;
constexpr size_t kStoreOffset = kStreamingOffset + 1;
constexpr size_t kResponseOffset = kStoreOffset + 20480;
constexpr size_t kRequestOffset = kResponseOffset + 20480;
constexpr size_t kOutputRecipeOffset = 697476;
constexpr size_t kInputRecipeOffset = kOutputRecipeOffset + 2000 * 108;
constexpr size_t kOutputLengthOffset = 1981532;
constexpr size_t kInputLengthOffset = 1981536;
constexpr size_t kIoSocketOffset = 1021476;
constexpr size_t kReceiveSocketOffset = kIoSocketOffset + 4;
constexpr size_t kControlSocketOffset = kIoSocketOffset + 8;
constexpr size_t kRawSocketOffset = kIoSocketOffset + 12;
constexpr size_t kControllerMacOffset = 1981540;
constexpr size_t kHostMacOffset = 1981546;
constexpr size_t kReplyTokensOffset = 1981616;

inline uint32_t read_u32(const uint8_t* at) {
    return static_cast<uint32_t>(at[0] | at[1] << 8 | at[2] << 16) | static_cast<uint32_t>(at[3])
                                                                         << 24;
}

inline void write_u32(uint8_t* at, uint32_t value) {
    for (int i = 0; i < 4; ++i) {
        at[i] = static_cast<uint8_t>(value >> (8 * i));
    }
}

}  // namespace test

#endif
