// Output packages: their rate, what they cost, and a client that does not read.
#include <gtest/gtest.h>

#include <cstring>

#include "tests/sim/peer.h"
#include "tests/support/process.h"

namespace {

using test::Bench;

sim::Options options_at(double rate) {
    sim::Options options;
    options.rate = rate;
    options.catalogue.outputs = {{"package_counter", 1, sim::Type::u32},
                                 {"controller_time", 2, sim::Type::f64},
                                 {"controller_name", 3, sim::Type::text}};
    return options;
}

struct Package {
    uint32_t counter = 0;
    double time = 0;
};

Package next(test::Peer& stream) {
    const test::Bytes message = stream.message();
    Package package;
    EXPECT_EQ(message.size(), 16U);
    if (message.size() == 16) {
        std::memcpy(&package.counter, message.data() + 4, 4);
        std::memcpy(&package.time, message.data() + 8, 8);
    }
    return package;
}

class Rate : public ::testing::TestWithParam<double> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(PerSecond, Rate, ::testing::Values(25.0, 1000.0));

TEST_P(Rate, IsKeptWithoutLossOrDrift) {
    Bench bench(options_at(GetParam()));
    bench.io.ask("11 00 4F 00 00 00 00 02 00 01 00 00 00 02 00 00 00");
    bench.io.ask("03 00 53");
    const Package first = next(bench.stream);
    const auto start = std::chrono::steady_clock::now();
    const auto cpu_before = test::cpu_time();
    Package last;
    for (uint32_t i = 1; i <= static_cast<uint32_t>(GetParam()); ++i) {
        last = next(bench.stream);
        ASSERT_EQ(last.counter, first.counter + i);
    }
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    const std::chrono::duration<double> used = test::cpu_time() - cpu_before;
    EXPECT_EQ(first.counter, 1U);
    EXPECT_NEAR(last.time - first.time, 1.0, 1e-9);
    EXPECT_NEAR(elapsed.count(), 1.0, 0.25);
    EXPECT_LT(used.count(), 0.5) << "of a core, which a thread that spins would use up";
    EXPECT_EQ(bench.simulator.counters().packages_dropped, 0U);
}

TEST(Stream, DropsPackagesOfAClientThatDoesNotRead) {
    Bench bench(options_at(1000));
    std::string ids;
    for (int i = 0; i < 250; ++i) {
        ids += "03 00 00 00 ";
    }
    // 250 texts make packages of 63754 bytes.
    bench.io.ask("F1 03 4F 00 00 00 00 FA 00 " + ids);
    bench.io.ask("03 00 53");
    ASSERT_TRUE(test::wait_until([&] { return bench.simulator.counters().packages_dropped > 10; }));
    // What arrives is still in step.
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(bench.stream.message().size(), 63754U);
    }
}
