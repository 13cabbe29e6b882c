// Without this the example of a whole session, and the README's code, could be broken.
#include <gmock/gmock.h>

#include <cstdlib>

#include "sim/simulator.h"
#include "tests/support/process.h"
#include "tests/support/program.h"

using test::own_loopback;
using test::Program;
using ::testing::HasSubstr;

namespace {

// What stands between two marks, each at its first place.
std::string between(const std::string& text, const std::string& begin, const std::string& end) {
    const size_t from = text.find(begin) + begin.size();
    return text.substr(from, text.find(end, from) - from);
}

TEST(SessionExample, ShowsValuesAndSlowsTheRobotDown) {
    sim::Options options;
    options.address = own_loopback();
    sim::Simulator simulator(options);
    // The library's receive thread has ended, but is nobody's to join.
    setenv("TSAN_OPTIONS", "report_thread_leaks=0", 1);
    Program example({SESSION_EXAMPLE, own_loopback()});
    EXPECT_EQ(example.status(), 0);
    EXPECT_THAT(example.output(), HasSubstr("joint 1 at 0.000 rad, speed 100 %\n"));
    EXPECT_THAT(example.output(), HasSubstr("joint 1 at 0.000 rad, speed 50 %\n"));
    EXPECT_EQ(Program({SESSION_EXAMPLE, own_loopback(2)}).status(), 1) << "nobody serves there";
}

TEST(SessionExample, StandsInTheReadme) {
    const std::string quoted = between(test::read_file(README), "```c\n", "```\n");
    ASSERT_THAT(quoted, HasSubstr("vexo_create("));
    EXPECT_EQ(quoted, between(test::read_file(SESSION_SOURCE), "/* README begins */\n",
                              "/* README ends */\n"));
}

}  // namespace
