// The controller as a fuzz target makes it up. Targets that use it link with --wrap=socket_send and
// --wrap=socket_recv, so that the library's own requests meet it in place of a connection.
#ifndef FUZZ_CONTROLLER_H
#define FUZZ_CONTROLLER_H

#include "client/dataspace.h"
#include "fuzz/input.h"

namespace fuzz {

// A registered handle that all inputs share. Printed texts go nowhere from the first call on.
uint32_t handle();
vexo::Dataspace& dataspace();

// Answers the next request with `reply`, and later ones with nothing. `delivery` says how: its low
// 12 bits are the most bytes that one receive brings (0: no limit); with its top bit set the
// connection then fails, otherwise it is closed.
void answer(uint16_t delivery, Span reply);

// Answers each request to come with the next of `replies`: a delivery word and a u16 length before
// the bytes of each.
void answer_each(Span replies);

// What a status or transport failure must look like.
void check_result(int32_t result);

}  // namespace fuzz

#endif
