// The examples of sessions, as programs and as the code that the manual quotes.
#include <gmock/gmock.h>

#include <csignal>

#include "sim/simulator.h"
#include "tests/support/process.h"
#include "tests/support/program.h"

namespace test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

sim::Options here() {
    sim::Options options;
    options.address = own_loopback();
    return options;
}

TEST(SessionExamples, WatchShowsValuesAndSurvivesACut) {
    sim::Simulator controller(here());
    Program example({SESSION_WATCH, own_loopback(), "4", "actual_joint_positions"});
    ASSERT_TRUE(controller.wait_for_packages(100));
    controller.disconnect(sim::Port::stream, sim::Break::reset);
    EXPECT_EQ(example.status(), 0);
    EXPECT_THAT(example.output(), AllOf(HasSubstr("  actual_joint_positions 0.000 -1.200 "),
                                        HasSubstr("cut: "), HasSubstr("back after "),
                                        HasSubstr("state: streaming\n"), HasSubstr(" 1 cuts\n")));
    Program unknown({SESSION_WATCH, own_loopback(), "4", "actual_joint_position"});
    EXPECT_EQ(unknown.status(), 1);
    EXPECT_THAT(unknown.output(), HasSubstr("actual_joint_positions"));
}

TEST(SessionExamples, ServoBeginsAnewAfterACutAndStopsTheRobot) {
    sim::Simulator controller(here());
    Program example({SESSION_SERVO, own_loopback(), "60"});
    ASSERT_TRUE(controller.wait_for_set_points(50));
    controller.disconnect(sim::Port::control, sim::Break::reset);
    ASSERT_TRUE(controller.wait_for_set_points(controller.counters().set_points + 50));
    EXPECT_EQ(example.status(SIGINT), 0) << example.output();
    const auto last = controller.requests(sim::Port::control).back();
    EXPECT_THAT(std::string(last.begin(), last.end()), ::testing::Not(HasSubstr("servoJ")));
    EXPECT_FALSE(controller.streaming());
}

// All that stands between two marks, piece behind piece.
std::string between(const std::string& text, const std::string& begin, const std::string& end) {
    std::string found;
    for (size_t at = text.find(begin); at != std::string::npos; at = text.find(begin, at)) {
        at += begin.size();
        found += text.substr(at, text.find(end, at) - at);
    }
    return found;
}

TEST(SessionExamples, StandInTheManual) {
    const std::string manual = read_file(SESSION_MANUAL);
    for (const auto& [language, source, mark] :
         {std::tuple{"```c\n", SESSION_WATCH_SOURCE, "/* Manual begins */\n"},
          std::tuple{"```cpp\n", SESSION_SERVO_SOURCE, "// Manual begins\n"}}) {
        const std::string code = between(read_file(source), mark,
                                         mark[1] == '*' ? "/* Manual ends */" : "// Manual ends");
        ASSERT_THAT(code, HasSubstr("VEXO_SESSION_OK"));
        EXPECT_EQ(between(manual, language, "```\n"), code);
    }
}

}  // namespace
}  // namespace test
