// Method calls: digital outputs, speed, errors, compensation, and set-points in both their forms.
#include <gtest/gtest.h>

#include <cmath>

#include "tests/sim/peer.h"
#include "tests/support/process.h"

namespace {

using test::Bench;
using test::operator+;
using test::number;
using test::word;

constexpr const char* accepted = "07 00 6D 00 00 00 00 ";
constexpr const char* bad_argument = "07 00 6D 05 00 00 00 ";
constexpr const char* error_state = "07 00 6D 07 00 00 00 ";

const sim::Joints pose{0.1, -1.1, 1.5, -0.3, 1.4, 0.2};

// A call with its length, id and argument count in front of the arguments.
std::string call(const std::string& method, unsigned count, const std::string& arguments = "") {
    static const sim::Catalogue catalogue = sim::Catalogue::built_in();
    uint16_t id = 0;
    for (const sim::Method& entry : catalogue.methods) {
        id = entry.name == method ? entry.id : id;
    }
    EXPECT_NE(id, 0) << method;
    const test::Bytes payload = test::bytes(arguments);
    const test::Bytes head{static_cast<uint8_t>(6 + payload.size()),
                           0,
                           0x6D,
                           static_cast<uint8_t>(id),
                           static_cast<uint8_t>(id >> 8),
                           static_cast<uint8_t>(count)};
    return test::hex(head + payload);
}

std::string numbers(const sim::Joints& joints, const std::string& before_each) {
    std::string text;
    for (const double joint : joints) {
        text += before_each + number(joint);
    }
    return text;
}

std::string servo_head(uint32_t sequence, const char* flag) {
    return "0B " + number(0.008) + "04 " + word(sequence) + "02 " + flag;
}

std::string servo_array(uint32_t sequence, const sim::Joints& joints) {
    return call("servoJ", 5, servo_head(sequence, "00 ") + "13 01 06 0B " + numbers(joints, ""));
}

std::string negotiate(const char* version) {
    return "0B 00 56 " + std::string(version) + " 00 00 00 00 00 00 00";
}

double distance(const sim::Joints& left, const sim::Joints& right) {
    double most = 0;
    for (size_t i = 0; i < left.size(); ++i) {
        most = std::max(most, std::abs(left[i] - right[i]));
    }
    return most;
}

}  // namespace

TEST(Command, IsCarriedOutUnlessItsArgumentsAreWrong) {
    Bench bench;
    bench.simulator.set_digital_inputs(0x0102030405060708);
    struct Case {
        const char* method;
        unsigned count;
        std::string arguments;
        const char* reply;
    };
    const Case cases[] = {
        {"setStandardDigitalOut", 2, "02 0F 01 01", accepted},
        {"setConfigurableDigitalOut", 2, "02 00 01 01", accepted},
        {"setToolDigitalOut", 2, "02 03 01 01", accepted},
        {"getAllDigitalOutputBits", 0, "", "0F 00 6D 00 00 00 00 00 80 01 08 00 00 00 00 "},
        {"setStandardDigitalOut", 2, "02 0F 01 00", accepted},
        {"setToolDigitalOut", 2, "02 04 01 01", bad_argument},
        {"setToolDigitalOut", 2, "02 00 01 02", bad_argument},
        {"getAllDigitalInputBits", 0, "", "0F 00 6D 00 00 00 00 08 07 06 05 04 03 02 01 "},
        {"setPercentVelocity", 1, "0B " + number(0.5), accepted},
        {"setPercentVelocity", 1, "0B " + number(-1), bad_argument},
        {"setPercentVelocity", 1, "0B " + number(100.5), bad_argument},
        {"setPercentVelocity", 1, "0B " + number(std::nan("")), bad_argument},
        {"startInertiaComp", 0, "", accepted},
        {"startTorqueComp", 0, "", accepted},
        {"stopInertiaComp", 0, "", accepted},
        {"stopTorqueComp", 0, "", accepted},
        {"startLogOutput", 0, "", accepted},
        {"startSensorForceInput", 0, "", accepted},
        {"stopSensorForceInput", 0, "", accepted},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(bench.io.ask(call(c.method, c.count, c.arguments)), c.reply)
            << c.method << ' ' << c.arguments;
    }
    EXPECT_EQ(bench.simulator.digital_outputs(), 0x08010000U);
    EXPECT_EQ(bench.simulator.speed_percent(), 0.5);
}

TEST(Command, RefusesMotionInErrorUntilItIsReset) {
    Bench bench;
    bench.io.ask(negotiate("02"));
    bench.simulator.raise_error(42);
    EXPECT_EQ(bench.control.ask(servo_array(1, pose)), error_state);
    EXPECT_EQ(bench.simulator.error_code(), 42U);
    EXPECT_EQ(bench.io.ask(call("resetError", 0)), accepted);
    EXPECT_EQ(bench.simulator.error_code(), 0U);
    EXPECT_EQ(bench.control.ask(servo_array(2, pose)), accepted);
    EXPECT_EQ(bench.simulator.counters().set_points, 1U);
}

// With the joints as separate values in version 1, and as one array, counted twice, in version 2.
TEST(Servo, TakesTheFormOfTheVersion) {
    const std::string separate = "02 06 " + numbers(pose, "0B ");
    const std::string array = "13 01 06 0B " + numbers(pose, "");
    const sim::Joints vector{1, 2, 3, 4, 5, 6};
    for (const bool first : {true, false}) {
        Bench bench;
        bench.io.ask(negotiate(first ? "01" : "02"));
        const std::string values = first ? separate : array;
        const unsigned count = first ? 10 : 5;
        EXPECT_EQ(bench.control.ask(call("servoJ", count, servo_head(100000, "00 ") + values)),
                  accepted);
        EXPECT_EQ(
            bench.control.ask(call("servoJ", count + 1,
                                   servo_head(1, "07 ") + "0D " + numbers(vector, "") + values)),
            accepted);
        EXPECT_EQ(bench.control.ask(call("servoJ", first ? 5 : 10,
                                         servo_head(2, "00 ") + (first ? array : separate))),
                  bad_argument)
            << "the form of the other version";

        const auto points = bench.simulator.set_points();
        ASSERT_EQ(points.size(), 2U);
        EXPECT_EQ(points[0].value, 0.008);
        EXPECT_EQ(points[0].sequence, 100000U);
        EXPECT_FALSE(points[0].vector);
        EXPECT_EQ(points[0].joints, std::vector<double>(pose.begin(), pose.end()));
        EXPECT_EQ(points[1].flag, 7);
        EXPECT_EQ(points[1].vector, vector);
        EXPECT_EQ(points[1].port, sim::Port::control);
    }
}

TEST(Servo, RefusesWhatIsNoPosition) {
    Bench bench;
    bench.io.ask(negotiate("02"));
    EXPECT_EQ(bench.control.ask(servo_array(1, {0, 0, INFINITY, 0, 0, 0})), bad_argument);
    EXPECT_EQ(bench.control.ask(call("servoJ", 1, "0B " + number(1))), bad_argument);
    EXPECT_EQ(bench.io.ask(servo_array(1, pose)), "07 00 6D 0A 00 00 00 ") << "on the IO port";
    EXPECT_TRUE(bench.simulator.set_points().empty());
    EXPECT_EQ(
        bench.control.ask(call("servoJ", 5, servo_head(1, "00 ") + "13 01 00 0B " + number(9))),
        accepted)
        << "no values, but the room of one";
    EXPECT_TRUE(bench.simulator.set_points().at(0).joints.empty());
}

TEST(Servo, MovesTheJointsWithinTheirSpeed) {
    Bench bench;
    bench.io.ask(negotiate("02"));
    const sim::Joints start = bench.simulator.joint_positions();
    EXPECT_EQ(bench.control.ask(servo_array(1, pose)), accepted);
    EXPECT_GT(distance(bench.simulator.joint_positions(), pose), 0.01) << "not at once";
    EXPECT_TRUE(
        test::wait_until([&] { return distance(bench.simulator.joint_positions(), pose) < 1e-6; }));

    bench.io.ask(call("setPercentVelocity", 1, "0B " + number(0)));
    bench.control.ask(servo_array(2, start));
    EXPECT_LT(distance(bench.simulator.joint_positions(), pose), 1e-6) << "no speed, no motion";
    EXPECT_EQ(bench.control.ask(call("servoStop", 1, "0B " + number(0.1))), accepted);
    bench.io.ask(call("setPercentVelocity", 1, "0B " + number(100)));
    EXPECT_LT(distance(bench.simulator.joint_positions(), pose), 1e-6) << "stopped";
}
