#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "os/os.h"

TEST(Memory, IsThatOfTheStandardAllocator) {
    char* block = static_cast<char*>(os_malloc(8));
    ASSERT_NE(block, nullptr);
    std::memcpy(block, "content", 8);
    block = static_cast<char*>(os_realloc(block, 1 << 20));
    ASSERT_NE(block, nullptr);
    EXPECT_STREQ(block, "content");
    std::free(block);
    os_free(std::malloc(16));
    os_free(nullptr);
}
