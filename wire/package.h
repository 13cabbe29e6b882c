// Packages of cyclic values, and what switches their stream.
#ifndef WIRE_PACKAGE_H
#define WIRE_PACKAGE_H

#include "wire/message.h"

namespace vexo::wire {

inline constexpr size_t kPackageHeader = 4;       // u16 length of the package, letter, recipe id
inline constexpr size_t kMaxFrameMessage = 1440;  // the most that one raw frame carries

struct PackageHeader {
    uint16_t length;  // header included
    uint8_t letter;
    uint8_t recipe;

    // A header that cannot be one does not begin a package.
    bool plausible() const {
        return letter == static_cast<uint8_t>(Letter::package) && length >= kPackageHeader;
    }
};

// Zeros where the bytes end early.
PackageHeader package_header(std::span<const uint8_t> package);

// Values of an input recipe, in recipe order.
MessageWriter input_package(std::span<uint8_t> buffer, uint8_t recipe,
                            std::span<const uint8_t> values);

// Start and pause the stream of output packages.
MessageWriter start_request(std::span<uint8_t> buffer);
MessageWriter pause_request(std::span<uint8_t> buffer);

}  // namespace vexo::wire

#endif
