// The Internet checksum.
#ifndef WIRE_CHECKSUM_H
#define WIRE_CHECKSUM_H

#include <cstdint>
#include <span>

namespace vexo::wire {

// One's complement of the one's complement sum of the little-endian 16-bit words; an odd last byte
// counts as one. Stored little-endian, it is what the standard asks for.
uint16_t internet_checksum(std::span<const uint8_t> data);

}  // namespace vexo::wire

#endif
