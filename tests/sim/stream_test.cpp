// Output packages: their rate, their contents and their end.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "tests/sim/peer.h"
#include "tests/support/process.h"

namespace {

using test::Bench;
using test::Peer;

constexpr const char* accepted_start = "07 00 53 00 00 00 00 ";

uint32_t output_id(const std::string& name) {
    for (const sim::Variable& output : sim::Catalogue::built_in().outputs) {
        if (output.name == name) {
            return output.id;
        }
    }
    ADD_FAILURE() << name;
    return 0;
}

// Asks for the package counter, the controller's time and the joint positions.
void set_up(Bench& bench) {
    EXPECT_EQ(
        bench.io.ask("15 00 4F 00 00 00 00 03 00 " + test::word(output_id("package_counter")) +
                     test::word(output_id("controller_time")) +
                     test::word(output_id("actual_joint_positions"))),
        "08 00 4F 00 00 00 00 01 ");
}

struct Package {
    uint32_t counter = 0;
    double time = 0;
    sim::Joints joints{};
};

Package next(Peer& stream) {
    const test::Bytes message = stream.message();
    Package package;
    EXPECT_EQ(test::hex(message).substr(0, 12), "40 00 55 01 ");
    if (message.size() == 64) {
        std::memcpy(&package.counter, message.data() + 4, 4);
        std::memcpy(&package.time, message.data() + 8, 8);
        std::memcpy(package.joints.data(), message.data() + 16, 48);
    }
    return package;
}

}  // namespace

class Rate : public ::testing::TestWithParam<double> {};

TEST_P(Rate, IsKeptWithoutLossOrDrift) {
    sim::Options options;
    options.rate = GetParam();
    Bench bench(options);
    set_up(bench);
    EXPECT_EQ(bench.io.ask("03 00 53"), accepted_start);
    const Package first = next(bench.stream);
    const auto start = std::chrono::steady_clock::now();
    const auto count = static_cast<uint32_t>(options.rate);
    Package last;
    for (uint32_t i = 1; i <= count; ++i) {
        last = next(bench.stream);
        ASSERT_EQ(last.counter, 1 + i);
    }
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(first.counter, 1U);
    EXPECT_EQ(first.joints, bench.simulator.joint_positions());
    EXPECT_NEAR(last.time - first.time, 1.0, 1e-9);
    EXPECT_NEAR(elapsed.count(), 1.0, 0.25);
    EXPECT_EQ(bench.simulator.counters().packages_dropped, 0U);
}

INSTANTIATE_TEST_SUITE_P(PerSecond, Rate, ::testing::Values(25.0, 250.0, 1000.0));

TEST(Stream, PausesAndStartsAnew) {
    Bench bench;
    set_up(bench);
    bench.io.ask("03 00 53");
    ASSERT_TRUE(bench.simulator.wait_for_packages(3));
    EXPECT_EQ(bench.io.ask("03 00 50"), "07 00 50 00 00 00 00 ");
    EXPECT_FALSE(bench.simulator.streaming());
    const uint64_t sent = bench.simulator.counters().packages_sent;
    for (uint64_t i = 1; i <= sent; ++i) {
        EXPECT_EQ(next(bench.stream).counter, i);
    }
    EXPECT_TRUE(bench.stream.read(std::chrono::milliseconds(50)).empty());
    bench.io.ask("03 00 53");
    EXPECT_EQ(next(bench.stream).counter, 1U);
}

TEST(Stream, EndsWithTheSession) {
    Bench bench;
    {
        Peer io(bench.address, sim::Port::io);
        // The session is now that of the newer connection.
        ASSERT_EQ(io.ask("0D 00 4F 00 00 00 00 01 00 " + test::word(output_id("error_code"))),
                  "08 00 4F 00 00 00 00 01 ");
        io.ask("03 00 53");
        ASSERT_TRUE(bench.simulator.wait_for_packages(1));
    }
    EXPECT_TRUE(test::wait_until([&] { return !bench.simulator.streaming(); }));
}

TEST(Stream, DropsPackagesOfAClientThatDoesNotRead) {
    Bench bench;
    std::string ids;
    const std::string id = test::word(output_id("controller_name"));
    for (int i = 0; i < 250; ++i) {
        ids += id;
    }
    // 250 texts make packages of 63754 bytes.
    EXPECT_EQ(bench.io.ask("F1 03 4F 00 00 00 00 FA 00 " + ids), "08 00 4F 00 00 00 00 01 ");
    bench.io.ask("03 00 53");
    ASSERT_TRUE(test::wait_until([&] { return bench.simulator.counters().packages_dropped > 10; }));
    // What arrives is still in step.
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(bench.stream.message().size(), 63754U);
    }
}

TEST(Stream, OfTenControllersCostsLittle) {
    std::vector<std::unique_ptr<sim::Simulator>> simulators;
    std::vector<std::unique_ptr<Peer>> peers;
    for (int i = 1; i <= 10; ++i) {
        sim::Options options;
        options.address = test::own_loopback(i);
        simulators.push_back(std::make_unique<sim::Simulator>(options));
        peers.push_back(std::make_unique<Peer>(options.address, sim::Port::stream));
        peers.push_back(std::make_unique<Peer>(options.address, sim::Port::io));
        peers.back()->ask("0D 00 4F 00 00 00 00 01 00 " +
                          test::word(output_id("actual_joint_positions")));
        peers.back()->ask("03 00 53");
    }
    const auto before = test::cpu_time();
    const uint64_t sent = simulators[0]->counters().packages_sent;
    ASSERT_TRUE(simulators[0]->wait_for_packages(sent + 1000));
    const std::chrono::duration<double> used = test::cpu_time() - before;
    // Instrumented builds on a busy machine included; a thread that spins takes a second by itself.
    EXPECT_LT(used.count(), 0.9);
    for (const auto& simulator : simulators) {
        EXPECT_GT(simulator->counters().packages_sent, 900U);
    }
    RecordProperty("cpu_seconds", std::to_string(used.count()));
}
