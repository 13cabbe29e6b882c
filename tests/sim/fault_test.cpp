// Each fault, as a client meets it.
#include "sim/fault.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/sim/peer.h"

namespace {

using test::Bench;

constexpr const char* package = "08 00 55 01 04 03 02 01 ";
constexpr const char* versions = "03 00 76";
constexpr const char* versions_reply = "10 00 76 00 00 00 00 03 00 03 31 2E 32 01 41 00 ";

sim::Options small_options() {
    sim::Options options;
    options.rate = 500;
    options.versions = {3, "1.2", "A", ""};
    options.catalogue.outputs = {{"strange", 0x01020304, sim::Type::u32}};
    options.catalogue.methods = {{"go", 0x0201}, {"halt", 0x0202}};
    return options;
}

}  // namespace

TEST(Fault, ChangesWhatOneReplySays) {
    Bench bench(small_options());
    const std::pair<const char*, const char*> cases[] = {
        {"type=v,status=9", "07 00 76 09 00 00 00 "},
        {"length=4000", "A0 0F 76 00 00 00 00 03 00 03 31 2E 32 01 41 00 "},
        {"letter=V", "10 00 56 00 00 00 00 03 00 03 31 2E 32 01 41 00 "},
        {"size=5", "05 00 76 00 00 "},
        {"size=18", "12 00 76 00 00 00 00 03 00 03 31 2E 32 01 41 00 00 00 "},
        {"size=5,length=16", "10 00 76 00 00 "},
        {"bytes=0badf00d", "0B AD F0 0D "},
        {"empty", "08 00 76 00 00 00 00 00 "}};
    for (const auto& [fault, reply] : cases) {
        bench.simulator.inject(sim::parse_fault(fault));
        bench.io.send(test::bytes(versions));
        EXPECT_EQ(test::hex(bench.io.read_exactly(test::bytes(reply).size())), reply) << fault;
        EXPECT_EQ(bench.io.ask(versions), versions_reply) << fault;
    }
}

TEST(Fault, HitsTheMethodItNamesAsOftenAsItSays) {
    Bench bench(small_options());
    bench.simulator.inject(sim::parse_fault("method=halt,status=8,skip=1,times=2"));
    EXPECT_EQ(bench.io.ask("06 00 6D 01 02 00"), "07 00 6D 00 00 00 00 ");
    for (const char* status : {"00", "08", "08", "00"}) {
        EXPECT_EQ(bench.io.ask("06 00 6D 02 02 00"),
                  "07 00 6D " + std::string(status) + " 00 00 00 ");
    }
    bench.simulator.inject(sim::parse_fault("status=8,times=always"));
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(bench.io.ask("06 00 6D 01 02 00"), "07 00 6D 08 00 00 00 ");
    }
    bench.simulator.clear_faults();
    EXPECT_EQ(bench.io.ask("06 00 6D 01 02 00"), "07 00 6D 00 00 00 00 ");
}

TEST(Fault, CutsShortensLosesAndDelaysPackages) {
    Bench bench(small_options());
    for (const char* fault : {"cuts=3,pause=1", "size=6", "lost,times=3", "delay=100"}) {
        bench.simulator.inject(sim::parse_fault("package," + std::string(fault)));
    }
    bench.io.ask("0D 00 4F 00 00 00 00 01 00 04 03 02 01");
    bench.io.ask("03 00 53");
    EXPECT_EQ(test::hex(bench.stream.message()), package);
    EXPECT_EQ(test::hex(bench.stream.message()), "06 00 55 01 04 03 ");
    EXPECT_TRUE(bench.stream.read(std::chrono::milliseconds(50)).empty());
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(test::hex(bench.stream.message()), package);
    }
    EXPECT_EQ(bench.simulator.counters().packages_dropped, 3U);
}

TEST(FaultText, NamesTheItemItCannotRead) {
    for (const char* wrong : {"foo", "times=x", "status=256", "type=ab", "source=1:2:3", "bytes=zz",
                              "delay=-1", "cuts=1+x"}) {
        EXPECT_THROW(sim::parse_fault(wrong), std::invalid_argument) << wrong;
    }
    const sim::Fault fault = sim::parse_fault(
        "package,doubled,altered,tagged,source=02:00:00:00:00:ff,payload=9,times=always");
    EXPECT_EQ(fault.target, sim::Target::package);
    EXPECT_TRUE(fault.doubled && fault.altered && fault.tagged);
    EXPECT_EQ(fault.source, (sim::MacAddress{2, 0, 0, 0, 0, 0xFF}));
    EXPECT_EQ(fault.payload_length, 9);
    EXPECT_EQ(fault.times, sim::Fault::always);
}
