// Without this the example application of the layer could be broken.
#include <gtest/gtest.h>

#include "tests/os/support.h"
#include "tests/support/program.h"

namespace {

TEST(OsLayerExample, RunsToItsEnd) {
    if (!test::may_run_realtime()) {
        GTEST_SKIP() << "no right to real-time scheduling";
    }
    test::Program example({OS_LAYER_EXAMPLE});
    EXPECT_EQ(example.status(), 0);
    EXPECT_EQ(example.output(), "20 readings, sum 210\n");
}

}  // namespace
