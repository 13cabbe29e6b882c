#include "wire/catalogue.h"

namespace vexo::wire {

MessageWriter page_request(std::span<uint8_t> buffer, Letter list, uint32_t first) {
    MessageWriter message(buffer, list);
    message.u32(first);
    return message;
}

template <>
VariableRow read_row(MessageReader& rows) {
    const std::string_view name = rows.text();
    const uint32_t id = rows.u32();
    return {name, id, rows.u8()};
}

template <>
MethodRow read_row(MessageReader& rows) {
    const std::string_view name = rows.text();
    return {name, rows.u16()};
}

}  // namespace vexo::wire
