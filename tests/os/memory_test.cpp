#include <gtest/gtest.h>
#include "os/os.h"
TEST(Memory, X) { os_free(os_malloc(4)); }
