#include "wire/package.h"

namespace vexo::wire {

PackageHeader package_header(std::span<const uint8_t> package) {
    MessageReader reader(package);
    const uint16_t length = reader.u16();
    const uint8_t letter = reader.u8();
    return {length, letter, reader.u8()};
}

MessageWriter input_package(std::span<uint8_t> buffer, uint8_t recipe,
                            std::span<const uint8_t> values) {
    MessageWriter message(buffer, Letter::package);
    message.u8(recipe).bytes(values);
    return message;
}

MessageWriter start_request(std::span<uint8_t> buffer) {
    return {buffer, Letter::start};
}

MessageWriter pause_request(std::span<uint8_t> buffer) {
    return {buffer, Letter::pause};
}

}  // namespace vexo::wire
