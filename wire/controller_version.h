// What the controller says of itself.
#ifndef WIRE_CONTROLLER_VERSION_H
#define WIRE_CONTROLLER_VERSION_H

#include "wire/message.h"

namespace vexo::wire {

// The texts lie in the reply and have no final zero.
struct ControllerVersion {
    uint16_t model;
    std::string_view firmware;
    std::string_view hardware;
    std::string_view bootloader;
    bool complete;  // all of it was in the reply
};

MessageWriter controller_version_request(std::span<uint8_t> buffer);
ControllerVersion controller_version(std::span<const uint8_t> reply);

}  // namespace vexo::wire

#endif
