// read, watch, write and call with the simulator's own catalogue.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/support/process.h"
#include "tests/tools/tool.h"

using nlohmann::json;
using test::Outcome;
using test::shell;
using test::SimulatedRobot;

namespace {

struct Case {
    std::vector<std::string> arguments;
    int status;
    std::string out;       // all of it
    std::string err = "";  // its beginning
};

void expect(const SimulatedRobot& robot, const std::vector<Case>& cases) {
    for (const Case& each : cases) {
        const Outcome run = robot.vexo(each.arguments);
        const std::string words = testing::PrintToString(each.arguments);
        EXPECT_EQ(run.status, each.status) << words << run.err;
        EXPECT_EQ(run.out, each.out) << words;
        EXPECT_EQ(run.err.substr(0, each.err.size()), each.err) << words;
    }
}

std::vector<json> lines_of(const std::string& text) {
    std::vector<json> objects;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        objects.push_back(json::parse(line));
    }
    return objects;
}

}  // namespace

TEST(Write, TakesEveryTypeAndReadShowsIt) {
    const SimulatedRobot robot;
    const std::vector<std::string> values = {
        "application_mark=x",
        "input_bool_register_1=true",
        "tool_digital_output_mask=255",
        "standard_digital_output_mask=65535",
        "heartbeat=4294967295",
        "input_bit_register_0=18446744073709551615",
        "application_step=-128",
        "application_state=-32768",
        "input_int_register_0=-5",
        "application_time_us=-9223372036854775808",
        "conveyor_speed=0.1",
        "speed_slider_fraction=0.30000000000000004",
        "payload_centre_request=1,-2,0.5",
        "external_force_torque=1,2,3,4,5,6.25",
        "application_text=hello, you",
        "joint_encoder_offsets=-1,2,-3,4,-5,6",
    };
    std::vector<std::string> write = {"write", "-q"};
    std::vector<std::string> read = {"read"};
    std::string shown;
    for (const std::string& value : values) {
        write.push_back(value);
        read.push_back(value.substr(0, value.find('=')));
        shown += value + '\n';
    }
    expect(robot, {{write, 0, ""}, {read, 0, shown}});

    read.push_back("--json");
    const json row = json::parse(robot.vexo(read).out);
    EXPECT_THAT(row.at("time").get<std::string>(), testing::ContainsRegex("^20.*\\.[0-9]+Z$"));
    EXPECT_GT(row.at("age_us"), 0);
    EXPECT_EQ(row.at("number"), 1);
    EXPECT_EQ(row.at("lost"), 0);
    EXPECT_EQ(row.at("values").size(), values.size());
    EXPECT_EQ(row.at("values").at("input_bit_register_0"), UINT64_MAX);
    EXPECT_EQ(row.at("values").at("conveyor_speed").dump(), "0.1");
    EXPECT_EQ(row.at("values").at("input_bool_register_1"), true);
    EXPECT_EQ(row.at("values").at("payload_centre_request"), json({1.0, -2.0, 0.5}));
}

TEST(Write, ChecksEverythingBeforeItSendsAnything) {
    const SimulatedRobot robot;
    expect(robot,
           {{{"write", "heartbeat=7"}, 0, "", "1 package sent"},
            {{"write", "heartbeat"}, 2, "", "vexo: \"heartbeat\" is no NAME=VALUE\n"},
            {{"write", "heartbeat=8", "heartbeat=9"}, 2, "", "vexo: \"heartbeat\" is given twice"},
            {{"write", "heartbeat=8", "application_step=128"},
             1,
             "",
             "vexo: application_step: 128 is more or less than i8 can hold\n"
             "remedy: give -128 to 127\n"},
            {{"write", "heartbeat=8", "application_step=1.5"},
             1,
             "",
             "vexo: application_step: \"1.5\" is no i8\nremedy: give a whole number"},
            {{"write", "heartbeat=-1"}, 1, "", "vexo: heartbeat: -1 is more or less than u32"},
            {{"write", "heartbeat=8", "external_force_torque=1,2"},
             1,
             "",
             "vexo: external_force_torque: it takes 6 elements, not 2\n"},
            {{"write", "speed_override=1"}, 1, "", "vexo: \"speed_override\" is an output"},
            {{"write", "heartbaet=8"},
             1,
             "",
             "vexo: \"heartbaet\" is not in the catalogue\nremedy: The nearest: heartbeat,"},
            {{"read", "heartbeat"}, 0, "heartbeat=7\n"}});
    const json held =
        json::parse(robot.vexo({"write", "heartbeat=9", "--hold", "0.2", "--json"}).out);
    EXPECT_GT(held.at("packages"), 10);
    EXPECT_EQ(held.at("status"), 0);
    EXPECT_EQ(held.at("values").at("heartbeat"), 9);
}

TEST(Call, TypesItsArgumentsAndTellsTheStatus) {
    const SimulatedRobot robot;
    expect(robot,
           {{{"call", "setPercentVelocity", "40"}, 0, "status 0\n"},
            {{"read", "speed_override"}, 0, "speed_override=40\n"},
            {{"call", "setStandardDigitalOut", "u8:3", "bool:1"}, 0, "status 0\n"},
            {{"call", "getAllDigitalOutputBits"}, 0, "status 0  reply 0800000000000000 (8)\n"},
            {{"call", "isWithinLimits", "f64x6:1,2,3,4,5,6", "f64[]:1", "text:1", "-5", "word"},
             0,
             "status 0\n"},
            {{"call", "moveJ", "1,2.5,3"}, 2, "", "vexo: moveJ may move the robot\n"},
            {{"call", "moveJ", "1,2.5,3", "--yes"}, 0, "status 0\n"},
            {{"call", "servoStop", "1"}, 0, "status 0\n"},
            {{"call", "isWithinLimits", "u8:256"}, 1, "", "vexo: 256: 256 is more or less"},
            {{"call", "heartbeat"}, 1, "", "vexo: \"heartbeat\" is an input"},
            {{"call", "setPercentVelocity", "i32:50"}, 5, "", "vexo: "}});
    const Outcome refused = robot.vexo({"call", "setPercentVelocity", "101", "--json"});
    EXPECT_EQ(refused.status, 5);
    EXPECT_EQ(json::parse(refused.out).at("status"), 5);
}

TEST(Watch, ShowsPackagesInItsForms) {
    const SimulatedRobot robot;
    expect(robot,
           {{{"watch", "speed_override", "-n", "1", "-t", "zero"},
             0,
             "0.000000000  speed_override=100\n",
             "1 package, 0 lost, 0 cuts\n"},
            {{"watch", "actual_joint_positions", "application_text", "-n1", "--csv", "-tdelta"},
             0,
             "time,actual_joint_positions[0],actual_joint_positions[1],"
             "actual_joint_positions[2],actual_joint_positions[3],"
             "actual_joint_positions[4],actual_joint_positions[5],application_text,end\n"
             "0.000000000,0,-1.2,1.6,-0.4,1.5,0,,1\n"},
            {{"watch", "speed_override", "--changes", "-D", "0.3", "-t", "delta", "-q"},
             0,
             "0.000000000  speed_override=100\n"},
            {{"watch", "servoJ"}, 1, "", "vexo: \"servoJ\" is a method, and has no value\n"},
            {{"watch", "heartbeat", "--csv", "--json"},
             2,
             "{\n  \"error\": {\n    \"code\": \"usage\",\n    \"cause\": \"--csv excludes "
             "--json\",\n    \"remedy\": \"leave one of them out\"\n  }\n}\n"}});

    uint64_t number = 0;
    for (const json& row :
         lines_of(robot.vexo({"watch", "package_counter", "-n", "50", "--json"}).out)) {
        EXPECT_EQ(row.at("number"), ++number);
        EXPECT_EQ(row.at("values").at("package_counter"), number);
    }
    EXPECT_EQ(number, 50U);
    const std::vector<json> slow =
        lines_of(robot.vexo({"watch", "package_counter", "-n", "5", "-r", "20", "--json"}).out);
    EXPECT_GE(slow.at(4).at("number"), 200U);
}

TEST(Watch, TellsOfLossesAndCutsByItsStatus) {
    const Outcome run = SimulatedRobot({"-f", "package,lost,skip=9,every=10"})
                            .vexo({"watch", "speed_override", "-n", "20", "--json"});
    EXPECT_EQ(run.status, 3) << run.err;
    uint64_t lost = 0;
    for (const json& row : lines_of(run.out)) {
        lost += row.at("lost").get<uint64_t>();
    }
    EXPECT_GE(lost, 1U);

    const Outcome cut = SimulatedRobot({"-f", "package,reset,skip=30"})
                            .vexo({"watch", "speed_override", "-n", "40"});
    EXPECT_EQ(cut.status, 3);
    EXPECT_THAT(cut.err, testing::ContainsRegex("^cut: .*\nback after 0.*\n40 packages.* 1 cut\n"));
}

TEST(Watch, EndsWithItsSummaryWhenInterrupted) {
    const SimulatedRobot robot;
    const std::string watch =
        VEXO_TOOL " --timeout 60 -H " + test::own_loopback() + " watch package_counter";
    const std::string until_line =
        "until grep -q =20 out2; do sleep 0.05; done; kill -INT $!; wait $!; ";
    EXPECT_EQ(
        shell(watch + " >out2 2>err2 & " + until_line + "echo $?; grep -c 'lost, . cut' err2"),
        "0\n1\n");
    // Whoever reads has enough: no words about it.
    EXPECT_EQ(shell("(" + watch + " | head -n 2) 2>&1 | wc -l"), "2\n");
    // A terminal shows progress, one that cannot go back does not.
    const std::string on_terminal = "script -qec '" + watch + " -D 0.5 >/dev/null' /dev/null";
    EXPECT_NE(shell("TERM=xterm " + on_terminal).find("\r\x1b[K"), std::string::npos);
    EXPECT_EQ(shell("TERM=dumb " + on_terminal).find('\x1b'), std::string::npos);
}
