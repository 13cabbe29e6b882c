// latency and servo-test: what they find out, and that nothing moves.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "sim/simulator.h"
#include "tests/support/process.h"
#include "tests/tools/tool.h"

using nlohmann::json;
using test::Outcome;
using test::SimulatedRobot;

namespace {

// Every figure that both print.
void expect_figures(const json& result, uint64_t least_packages) {
    EXPECT_GE(result.at("packages"), least_packages);
    EXPECT_EQ(result.at("lost"), 0);
    for (const char* series : {"interval_us", "age_us", "round_trip_us"}) {
        const json& row = result.at(series);
        EXPECT_GT(row.at("p50"), 0) << series;
        EXPECT_LE(row.at("p50"), row.at("p99")) << series;
        EXPECT_LE(row.at("p99"), row.at("p99_9")) << series;
        EXPECT_LE(row.at("p99_9"), row.at("max")) << series;
    }
    for (const char* cause : {"peer", "wire", "wake_up", "library", "reader"}) {
        EXPECT_TRUE(result.at("late").at(cause).is_number_unsigned()) << cause;
    }
}

}  // namespace

TEST(Latency, JudgesByTheLimitAndDrawsThePercentiles) {
    const SimulatedRobot robot;
    const Outcome good = robot.vexo(
        {"latency", "-D", "0.5", "--limit", "60000000", "--hist", "picture.svg", "--json"});
    EXPECT_EQ(good.status, 0) << good.err;
    EXPECT_EQ(json::parse(good.out).at("verdict"), "pass");
    EXPECT_EQ(json::parse(good.out).at("causes"), json::array());
    expect_figures(json::parse(good.out), 50);
    EXPECT_THAT(test::read_file("picture.svg"), testing::ContainsRegex("^<svg .*</svg>\n$"));
    EXPECT_NE(test::read_file("picture.svg").find(">99 %<"), std::string::npos);
    EXPECT_NE(test::read_file("picture.svg").find(">interval<"), std::string::npos);

    const Outcome bad = robot.vexo({"latency", "-D", "0.3", "--limit", "0.001", "--json"});
    EXPECT_EQ(bad.status, 3);
    EXPECT_EQ(json::parse(bad.out).at("verdict"), "fail");
    EXPECT_THAT(json::parse(bad.out).at("causes").dump(),
                testing::HasSubstr("age: 99.9 % keep to"));
    EXPECT_EQ(robot.vexo({"latency", "--hist", "no/such/folder.svg"}).status, 1);
}

TEST(Latency, FailsWhenPackagesAreLost) {
    const SimulatedRobot robot({"-f", "package,lost,every=20"});
    const Outcome run = robot.vexo({"latency", "-D", "0.5", "--limit", "60000000"});
    EXPECT_EQ(run.status, 3);
    EXPECT_THAT(run.out, testing::ContainsRegex("\n[0-9]+ packages lost\nfail\n$"));
}

TEST(ServoTest, KeepsTheRobotWhereItIs) {
    sim::Options options;
    options.address = test::own_loopback();
    sim::Simulator simulator(options);
    const sim::Joints before = simulator.joint_positions();
    const std::vector<std::string> line = {"servo-test", "-D", "0.5", "--json",
                                           "--timeout",  "60", "-H",  test::own_loopback()};
    EXPECT_EQ(test::vexo(line).status, 2);
    EXPECT_TRUE(simulator.set_points().empty());

    std::vector<std::string> sure = line;
    sure.emplace_back("--yes");
    const Outcome run = test::vexo(sure);
    EXPECT_THAT(run.status, testing::AnyOf(0, 3)) << run.err;
    expect_figures(json::parse(run.out), 50);
    EXPECT_GE(simulator.set_points().size(), 50U);
    for (const sim::SetPoint& point : simulator.set_points()) {
        EXPECT_TRUE(
            std::equal(before.begin(), before.end(), point.joints.begin(), point.joints.end()));
    }
    EXPECT_EQ(simulator.joint_positions(), before);

    simulator.raise_error(17);
    const Outcome refused = test::vexo(sure);
    EXPECT_EQ(refused.status, 5);
    EXPECT_EQ(json::parse(refused.out).at("status"), 7);
}
