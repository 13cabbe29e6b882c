#include <gtest/gtest.h>

#include <cstdlib>

#include "os/os.h"

TEST(Memory, ComesFromTheStandardAllocator) {
    void* block = os_malloc(64);
    ASSERT_NE(block, nullptr);
    std::free(block);
}
