// Set-up of recipes: the ordered lists of variables that make up a package.
#ifndef WIRE_RECIPE_H
#define WIRE_RECIPE_H

#include "wire/message.h"

namespace vexo::wire {

// Begin a request; `count` variable ids are then appended to it by u32(). What `header_word` means
// is the controller's.
MessageWriter output_recipe_request(std::span<uint8_t> buffer, uint32_t header_word,
                                    uint16_t count);
MessageWriter input_recipe_request(std::span<uint8_t> buffer, uint16_t count);

// The most ids that an output recipe's request of `size` bytes can hold.
size_t output_recipe_room(size_t size);

// The number that the controller gives a recipe, in its reply to either request; 0 where the reply
// ends early.
uint8_t recipe_id(std::span<const uint8_t> reply);

}  // namespace vexo::wire

#endif
