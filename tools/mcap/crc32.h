// The CRC-32 of IEEE 802.3, as MCAP uses it.
#ifndef TOOLS_MCAP_CRC32_H
#define TOOLS_MCAP_CRC32_H

#include <cstdint>
#include <span>

namespace mcap {

// `before` is the result for what stands before `data`; 0 for nothing.
uint32_t crc32(std::span<const uint8_t> data, uint32_t before = 0);

}  // namespace mcap

#endif
