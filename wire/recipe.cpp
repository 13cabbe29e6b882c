#include "wire/recipe.h"

namespace vexo::wire {

MessageWriter output_recipe_request(std::span<uint8_t> buffer, uint32_t header_word,
                                    uint16_t count) {
    MessageWriter message(buffer, Letter::output_recipe);
    message.u32(header_word).u16(count);
    return message;
}

MessageWriter input_recipe_request(std::span<uint8_t> buffer, uint16_t count) {
    MessageWriter message(buffer, Letter::input_recipe);
    message.u16(count);
    return message;
}

size_t output_recipe_room(size_t size) {
    constexpr size_t kHeader = kMessageHeader + sizeof(uint32_t) + sizeof(uint16_t);
    return size > kHeader ? (size - kHeader) / sizeof(uint32_t) : 0;
}

uint8_t recipe_id(std::span<const uint8_t> reply) {
    return reply_payload(reply).u8();
}

}  // namespace vexo::wire
