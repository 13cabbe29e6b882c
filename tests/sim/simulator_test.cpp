// A simulator as the test of an application uses it: what it shows, and what can be set.
#include <gtest/gtest.h>

#include <cmath>
#include <system_error>

#include "tests/sim/peer.h"
#include "tests/support/process.h"

namespace {

using test::Bench;
using test::number;
using test::Peer;
using test::word;

constexpr const char* accepted = "07 00 6D 00 00 00 00 ";
constexpr const char* error_state = "07 00 6D 07 00 00 00 ";

std::string set_point(const sim::Joints& joints) {
    std::string request =
        "4A 00 6D 01 03 05 0B " + number(0.008) + "04 " + word(1) + "02 00 13 01 06 0B ";
    for (const double joint : joints) {
        request += number(joint);
    }
    return request;
}

std::string speed(double percent) {
    return "0F 00 6D 01 05 01 0B " + number(percent);
}

class Arm : public ::testing::Test {
protected:
    void SetUp() override { bench_.io.ask("0B 00 56 02 00 00 00 00 00 00 00"); }

    bool is_at(const sim::Joints& joints) const {
        const sim::Joints now = bench_.simulator.joint_positions();
        return std::equal(now.begin(), now.end(), joints.begin(),
                          [](double a, double b) { return std::abs(a - b) < 1e-6; });
    }

    Bench bench_{test::small_controller()};
    const sim::Joints pose_{0.1, -1.1, 1.5, -0.3, 1.4, 0.2};
};

void expect_refused(const sim::Options& options, const std::string& reason) {
    try {
        const sim::Simulator simulator(options);
        ADD_FAILURE() << reason;
    } catch (const std::system_error& error) {
        EXPECT_NE(std::string(error.what()).find(reason), std::string::npos) << error.what();
    }
}

}  // namespace

TEST_F(Arm, HasDigitalInputsAndOutputs) {
    bench_.simulator.set_digital_inputs(0x0102030405060708);
    EXPECT_EQ(bench_.io.ask("06 00 6D 01 07 00"), "0F 00 6D 00 00 00 00 08 07 06 05 04 03 02 01 ");
    EXPECT_EQ(bench_.io.ask("0A 00 6D 01 06 02 02 03 01 01"), accepted);
    EXPECT_EQ(bench_.simulator.digital_outputs(), 1U << 27);
}

TEST_F(Arm, RefusesMotionInErrorUntilItIsReset) {
    bench_.simulator.raise_error(42);
    EXPECT_EQ(bench_.control.ask(set_point(pose_)), error_state);
    EXPECT_EQ(bench_.simulator.error_code(), 42U);
    EXPECT_EQ(bench_.io.ask("06 00 6D 01 04 00"), accepted);
    EXPECT_EQ(bench_.simulator.error_code(), 0U);
    EXPECT_EQ(bench_.control.ask(set_point(pose_)), accepted);
    EXPECT_EQ(bench_.simulator.counters().set_points, 1U);
}

TEST_F(Arm, MovesWithinItsSpeed) {
    const sim::Joints start = bench_.simulator.joint_positions();
    EXPECT_EQ(bench_.control.ask(set_point(pose_)), accepted);
    EXPECT_FALSE(is_at(pose_)) << "not at once";
    EXPECT_TRUE(test::wait_until([&] { return is_at(pose_); }));

    EXPECT_EQ(bench_.io.ask(speed(0)), accepted);
    EXPECT_EQ(bench_.simulator.speed_percent(), 0.0);
    bench_.control.ask(set_point(start));
    EXPECT_TRUE(is_at(pose_)) << "no speed, no motion";
    EXPECT_EQ(bench_.control.ask("0F 00 6D 02 03 01 0B " + number(0.1)), accepted);
    bench_.io.ask(speed(100));
    EXPECT_TRUE(is_at(pose_)) << "stopped";
}

TEST(Simulator, ShowsItsInputsAndFixesItsOutputs) {
    Bench bench(test::small_controller());
    bench.io.ask("0D 00 49 02 00 " + word(0x33) + word(0x22));
    bench.io.ask("0D 00 4F 00 00 00 00 01 00 " + word(0x01020304));
    bench.io.send(test::bytes("0E 00 55 01 CD AB " + number(1.5)));
    ASSERT_TRUE(bench.simulator.wait_for_inputs(1));
    EXPECT_EQ(test::hex(bench.simulator.input("step")), "CD AB ");
    EXPECT_EQ(test::hex(bench.simulator.input("speed")), number(1.5));
    EXPECT_TRUE(bench.simulator.input("strange").empty());

    EXPECT_TRUE(bench.simulator.set_output("strange", test::bytes("09")));
    EXPECT_FALSE(bench.simulator.set_output("step", test::bytes("09")));
    bench.io.ask("03 00 53");
    EXPECT_EQ(test::hex(bench.stream.message()),
              "10 00 55 02 09 00 00 00 00 00 00 00 00 00 00 00 ");
}

TEST(Simulator, SaysWhatItCannotHave) {
    const Bench bench;
    sim::Options options;
    options.address = bench.address;
    expect_refused(options, bench.address + ":2295: Address already in use");
    options.address = test::own_loopback(2);
    options.interface = "no-such-if";
    expect_refused(options, "no-such-if");
}

TEST(Simulator, StopsPromptlyAndLeavesNothingOpen) {
    const auto before = test::open_descriptors();
    {
        Bench bench;
        bench.io.ask("03 00 76");
        const auto start = std::chrono::steady_clock::now();
        bench.simulator.stop();
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
        EXPECT_EQ(bench.control.end(), Peer::End::closed);
        EXPECT_EQ(bench.simulator.counters().requests, 1U);
    }
    EXPECT_EQ(test::open_descriptors(), before);
}
