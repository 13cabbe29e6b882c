// A simulator as the test of an application uses it: what it takes, shows, and can be set to.
#include <gtest/gtest.h>

#include <system_error>

#include "sim/frame.h"
#include "tests/sim/peer.h"
#include "tests/support/network_namespace.h"
#include "tests/support/raw_port.h"

namespace {

using test::Bench;
using test::Peer;
using test::value;

constexpr const char* kGo = "06 00 6D 01 02 00";
constexpr const char* kAccepted = "07 00 6D 00 00 00 00 ";

// With a catalogue that is small enough to write requests by hand.
sim::Options small_controller() {
    sim::Options options;
    options.rate = 200;
    options.catalogue.outputs = {{"strange", 0x01020304, sim::Type::vector3_f32}};
    options.catalogue.inputs = {{"speed", 0x22, sim::Type::f64}, {"step", 0x33, sim::Type::u16}};
    options.catalogue.methods = {
        {"go", 0x0201}, {"servoJ", 0x0301}, {"setPercentVelocity", 0x0501}};
    return options;
}

void expect_refused(const sim::Options& options, const std::string& reason) {
    try {
        const sim::Simulator simulator(options);
        ADD_FAILURE() << reason;
    } catch (const std::system_error& error) {
        EXPECT_NE(std::string(error.what()).find(reason), std::string::npos) << error.what();
    }
}

}  // namespace

TEST(Exchange, RefusesNonsenseAndGoesOn) {
    Bench bench(small_controller());
    bench.simulator.raise_error(42);
    const std::string set_point =
        "6D 01 03 05 0B " + value(0.008) + "04 " + value(1) + "02 00 13 01 00 0B " + value(0.0);
    struct Case {
        const Peer& peer;
        std::string request;
        uint8_t status;
    };
    const Case cases[] = {{bench.io, "04 00 53 00", 1},
                          {bench.io, "08 00 6D 01 02 01 63 00", 1},
                          {bench.io, "03 00 7A", 2},
                          {bench.control, "07 00 52 00 00 00 00", 2},
                          {bench.io, "09 00 49 01 00 04 03 02 01", 3},
                          {bench.io, "06 00 6D 02 02 00", 4},
                          {bench.io, "0F 00 6D 01 05 01 0B " + value(100.5), 5},
                          {bench.io, "03 00 53", 6},
                          {bench.control, "22 00 " + set_point, 7},
                          {bench.io, "11 00 56 03 00 01 00 00 00 00 00 02 00 00 00 00 01", 8},
                          {bench.io, "22 00 " + set_point, 10}};
    for (const Case& c : cases) {
        const uint8_t letter = test::bytes(c.request)[2];
        EXPECT_EQ(c.peer.ask(c.request), test::hex({7, 0, letter, c.status, 0, 0, 0})) << c.request;
        EXPECT_EQ(c.peer.ask(kGo), kAccepted);
    }
    EXPECT_EQ(bench.simulator.counters().refused, std::size(cases));
    bench.io.send(kGo + std::string(" 06 00 6D"));
    EXPECT_EQ(bench.io.message(), kAccepted);
    EXPECT_EQ(bench.io.ask("01 02 00"), kAccepted);
    EXPECT_EQ(bench.io.ask("02 00 56 01"), "07 00 56 01 00 00 00 ") << "out of step";
    EXPECT_EQ(bench.io.next(), Peer::Next::close);
}

TEST(RawPath, TakesFramesOfItsClientAndNumbersItsOwn) {
    if (const std::string reason = test::enter_network_namespace(); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    test::make_veth_pair("client0", "02:00:00:00:00:0a", "controller0", "02:00:00:00:00:0b");
    sim::Options options = small_controller();
    options.interface = "controller0";
    Bench bench(options);
    const auto cable = test::Port::ethernet("client0");
    EXPECT_EQ(bench.io.ask("11 00 56 03 00 01 00 00 00 00 00 02 00 00 00 00 0A"),
              "0D 00 56 00 00 00 00 02 00 00 00 00 0B ");
    bench.io.ask("09 00 49 01 00 " + value(0x33));
    const auto send = [&](sim::FrameCode code, const char* fault) {
        const test::Bytes input = test::bytes("06 00 55 01 34 12");
        cable->send(sim::build_frame({{2, 0, 0, 0, 0, 0x0B}, {2, 0, 0, 0, 0, 0x0A}, code, 0, input},
                                     sim::parse_fault(fault)));
    };
    for (const char* fault : {"source=02:00:00:00:00:0c", "altered", "payload=200", "code=9"}) {
        send(sim::FrameCode::input, fault);
    }
    send(sim::FrameCode::command, "");
    send(sim::FrameCode::input, "");
    EXPECT_TRUE(bench.simulator.wait_for_inputs(1));
    EXPECT_EQ(test::hex(bench.simulator.input("step")), "34 12 ");
    EXPECT_EQ(bench.simulator.counters().frames_rejected, 5U);

    for (const char* fault : {"package,lost,skip=1", "package,gap=9", "package,swapped,skip=1"}) {
        bench.simulator.inject(sim::parse_fault(fault));
    }
    bench.stream_outputs({0x01020304});
    for (const int sequence : {9, 11, 13, 12, 14}) {
        EXPECT_EQ(sim::read_frame(cable->receive())->sequence, sequence);
    }
}

TEST(Stream, DropsPackagesOfAClientThatDoesNotRead) {
    Bench bench;
    constexpr uint32_t kText = 0x0201 + 24;  // 250 of them make packages of 63754 bytes
    bench.stream_outputs(std::vector<uint32_t>(250, kText));
    ASSERT_TRUE(test::wait_until([&] { return bench.simulator.counters().packages_dropped > 10; }));
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(bench.stream.message().size(), 3 * 63754U) << "still in step";
    }
}

TEST(Simulator, StandsBesideNinetyNineOthersAndLeavesNothingOpen) {
    const auto before = test::open_descriptors();
    {
        sim::Options options;
        options.rate = 20;
        std::deque<Bench> benches;
        for (int number = 1; number <= 100; ++number) {
            benches.emplace_back(options, number);
            benches.back().stream_outputs({0x0203});
        }
        const auto cpu_before = test::cpu_time();
        const auto start = std::chrono::steady_clock::now();
        for (Bench& bench : benches) {
            for (uint32_t counter = 1; counter <= 10; ++counter) {
                ASSERT_EQ(bench.stream.message(), "08 00 55 01 " + value(counter));
            }
        }
        EXPECT_LT(test::cpu_time() - cpu_before, std::chrono::steady_clock::now() - start)
            << "one that spins would use all there is";
        sim::Options same;
        same.address = benches.front().address;
        expect_refused(same, same.address + ":2295: Address already in use");
        same.address = test::own_loopback(101);
        same.interface = "no-such-if";
        expect_refused(same, "no-such-if");
        benches.front().simulator.stop();
        EXPECT_EQ(benches.front().control.next(), Peer::Next::close);
    }
    EXPECT_EQ(test::open_descriptors(), before);
}
