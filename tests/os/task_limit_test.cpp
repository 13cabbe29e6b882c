// How an unprivileged process comes to a real-time priority: by raising its own soft limit.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "os/os.h"
#include "tests/os/pretended_limits.h"

namespace {

TEST(TaskLimit, IsRaisedAsFarAsTheHardLimitAllows) {
    struct Case {
        const char* what;
        rlimit before;
        int32_t priority;
        int32_t result;
        rlim_t soft_after;
    };
    const Case cases[] = {
        {"raised to what is asked for", {0, 99}, 50, 0, 50},
        {"raised to the hard limit itself", {10, 20}, 20, 0, 20},
        {"no hard limit", {0, RLIM_INFINITY}, 99, 0, 99},
        {"low enough already", {50, 99}, 50, 0, 50},
        {"above the hard limit", {0, 49}, 50, -1, 0},
        {"nothing allowed", {0, 0}, 1, -1, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        test::limit_changes = 0;
        test::pretended_limits = c.before;
        EXPECT_EQ(pthread_set_param(c.priority, PTHREAD_POLICY_FIFO), c.result);
        const rlimit after = *test::pretended_limits;
        test::pretended_limits.reset();
        EXPECT_EQ(after.rlim_cur, c.soft_after);
        EXPECT_EQ(after.rlim_max, c.before.rlim_max);
        EXPECT_EQ(test::limit_changes, c.soft_after != c.before.rlim_cur ? 1 : 0);
    }
}

}  // namespace
