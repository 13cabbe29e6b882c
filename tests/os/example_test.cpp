// The example application of the layer, from outside.
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/wait.h>

#include <string>

#include "tests/os/support.h"

namespace {

TEST(OsLayerExample, RunsToItsEnd) {
    if (!test::may_run_realtime()) {
        GTEST_SKIP() << "no right to real-time scheduling";
    }
    FILE* const output = popen(OS_LAYER_EXAMPLE " 2>&1", "r");
    ASSERT_NE(output, nullptr);
    std::string text;
    char chunk[256];
    while (fgets(chunk, sizeof chunk, output) != nullptr) {
        text += chunk;
    }
    const int status = pclose(output);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(text, "20 readings, sum 210\n");
}

}  // namespace
