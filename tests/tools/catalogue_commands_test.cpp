// info, list and find with a controller that has a small catalogue, and with none.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/support/process.h"
#include "tests/tools/tool.h"

using nlohmann::json;
using test::Outcome;
using test::own_loopback;

namespace {

constexpr const char* kCatalogue = R"({
  "outputs": [{"name": "joints", "id": 1, "type": 13}, {"name": "my_counter", "id": 2, "type": 4}],
  "inputs": [{"name": "my_speed", "id": 100, "type": 11}],
  "methods": [{"name": "servoJ", "id": 7}]
})";

test::SimulatedRobot robot_with_catalogue(std::vector<std::string> options = {}) {
    std::ofstream("catalogue.json") << kCatalogue;
    options.insert(options.end(), {"-c", "catalogue.json"});
    return test::SimulatedRobot(options);
}

}  // namespace

TEST(Catalogue, IsListedAndSearched) {
    const test::SimulatedRobot robot = robot_with_catalogue();
    const std::string joints = "output  joints          1 f64x6    48\n";
    const std::string counter = "output  my_counter      2 u32       4\n";
    const std::string speed = "input   my_speed      100 f64       8\n";
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string out;
    } cases[] = {
        {{"list"}, 0, joints + counter + speed + "method  servoJ          7 -         0\n"},
        {{"list", "outputs", "--glob", "*_counter"}, 0, counter},
        {{"list", "--glob", "my_*", "--type", "f64"}, 0, "input   my_speed    100 f64       8\n"},
        {{"list", "methods", "--type", "u8"}, 0, ""},
        {{"list", "outputs", "--json", "--type", "u32"},
         0,
         json::parse(R"([{"kind": "output", "name": "my_counter", "id": 2, "type": "u32",
                          "size": 4}])")
             .dump()},
        {{"list", "--catalogue"}, 0, json::parse(kCatalogue).dump()},
        {{"list", "--type", "pink"}, 2, ""},
        {{"find", "servoJ", "joints"}, 0, "servoJ  method\njoints  output  f64x6\n"},
        {{"find"}, 2, ""},
    };
    for (const auto& [arguments, status, out] : cases) {
        const Outcome run = robot.vexo(arguments);
        const json document = json::parse(run.out, nullptr, false);
        EXPECT_EQ(run.status, status) << testing::PrintToString(arguments) << run.err;
        EXPECT_EQ(document.is_discarded() ? run.out : document.dump(), out);
    }

    const Outcome unknown = robot.vexo({"find", "my_countre", "my_speed", "--json"});
    EXPECT_EQ(unknown.status, 1);
    const json rows = json::parse(unknown.out);
    EXPECT_EQ(rows.at(0).at("found"), false);
    EXPECT_EQ(rows.at(0).at("nearest").size(), 3U);
    EXPECT_EQ(rows.at(0).at("nearest").at(0), "my_counter");
    EXPECT_EQ(rows.at(1).at("kind"), "input");
}

TEST(Catalogue, IsCountedByInfo) {
    const test::SimulatedRobot robot = robot_with_catalogue();
    for (const auto& [mode, name] : {std::pair("1", "tcp1"), std::pair("2", "tcp2")}) {
        const Outcome run = robot.vexo({"info", "--json", "--mode", mode});
        EXPECT_EQ(run.status, 0) << run.err;
        const json info = json::parse(run.out);
        EXPECT_EQ(info.at("address"), own_loopback());
        EXPECT_EQ(info.at("mode"), name);
        EXPECT_EQ(info.at("outputs"), 2);
        EXPECT_EQ(info.at("inputs"), 1);
        EXPECT_EQ(info.at("methods"), 1);
        EXPECT_GT(info.at("round_trip_us"), 0);
        EXPECT_NE(info.at("controller").at("firmware"), "");
    }
}

TEST(RefusingController, EndsTheWaitingAtOnce) {
    const test::SimulatedRobot robot = robot_with_catalogue({"-f", "type=v,status=9,times=always"});
    const Outcome run = robot.vexo({"info", "--json"});
    EXPECT_EQ(run.status, 5) << run.err;
    EXPECT_EQ(json::parse(run.out).at("status"), 9);
    EXPECT_EQ(json::parse(run.out).at("error").at("code"), "refused");
}

TEST(NoController, EndsTheWaitingInTime) {
    const Outcome run = test::vexo({"list", "--json", "--timeout", "0.3", "-H", own_loopback()});
    EXPECT_EQ(run.status, 4);
    EXPECT_EQ(json::parse(run.out).at("error").at("code"), "unreachable");
    EXPECT_EQ(test::vexo({"find", "x", "--capture", "eth1"}).status, 2);
}
