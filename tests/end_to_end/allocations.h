// Counts of what the process allocates, the library included.
#ifndef TESTS_END_TO_END_ALLOCATIONS_H
#define TESTS_END_TO_END_ALLOCATIONS_H

#include <cstdint>

namespace test {

// Blocks that the calling thread has allocated.
uint64_t allocations();

// Bytes that all threads together have allocated and not released.
int64_t live_bytes();

}  // namespace test

#endif
