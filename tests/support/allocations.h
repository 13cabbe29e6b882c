// Counts of what the process allocates, the library included. For that, what links this stands in
// for malloc.
#ifndef TESTS_SUPPORT_ALLOCATIONS_H
#define TESTS_SUPPORT_ALLOCATIONS_H

#include <cstdint>

namespace test {

// Blocks that all threads together have allocated.
uint64_t allocations();

// Bytes that they have allocated and not released.
int64_t live_bytes();

// Makes the calling thread's allocation number `nth` from now fail. Not with a sanitizer's
// allocator.
void fail_allocation(int nth);

}  // namespace test

#endif
