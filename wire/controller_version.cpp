#include "wire/controller_version.h"

namespace vexo::wire {

MessageWriter controller_version_request(std::span<uint8_t> buffer) {
    return {buffer, Letter::controller_version};
}

ControllerVersion controller_version(std::span<const uint8_t> reply) {
    MessageReader payload = reply_payload(reply);
    ControllerVersion version{};
    version.model = payload.u16();
    version.firmware = payload.text();
    version.hardware = payload.text();
    version.bootloader = payload.text();
    version.complete = payload.ok();
    return version;
}

}  // namespace vexo::wire
