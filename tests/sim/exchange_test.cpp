// Requests on the IO port: versions, recipes, inputs, and what is refused.
#include <gtest/gtest.h>

#include <system_error>

#include "tests/sim/peer.h"
#include "tests/support/process.h"

namespace {

using test::Bench;
using test::Peer;
using test::word;

// An input, an output that the arm does not know, and the method for set-points.
sim::Options small_options() {
    sim::Options options;
    options.catalogue.outputs = {{"strange", 0x01020304, sim::Type::vector3_f32}};
    options.catalogue.inputs = {{"speed", 0x22, sim::Type::f64}, {"step", 0x33, sim::Type::u16}};
    options.catalogue.methods = {{"go", 0x0201}, {"servoJ", 0x0301}, {"resetError", 0x0401}};
    return options;
}

}  // namespace

TEST(Exchange, NegotiatesAndTellsItsVersions) {
    sim::Options options;
    options.versions = {3, "1.2", "A", ""};
    Bench bench(options);
    EXPECT_EQ(bench.io.ask("0B 00 56 01 00 00 00 00 00 00 00"), "07 00 56 00 00 00 00 ");
    EXPECT_EQ(bench.io.ask("0B 00 56 02 00 00 00 00 00 00 00"), "07 00 56 00 00 00 00 ");
    EXPECT_EQ(bench.io.ask("11 00 56 03 00 01 00 00 00 00 00 02 00 00 00 00 01"),
              "07 00 56 08 00 00 00 ")
        << "no raw path without an interface";
    EXPECT_EQ(bench.io.ask("03 00 76"), "10 00 76 00 00 00 00 03 00 03 31 2E 32 01 41 00 ");
}

TEST(Exchange, RefusesNonsenseAndGoesOn) {
    Bench bench(small_options());
    struct Case {
        const char* what;
        Peer& peer;
        const char* request;
        const char* reply;
    };
    const Case cases[] = {
        {"short V", bench.io, "0A 00 56 01 00 00 00 00 00 00", "07 00 56 01 00 00 00 "},
        {"raw V without address", bench.io, "0B 00 56 03 00 01 00 00 00 00 00",
         "07 00 56 01 00 00 00 "},
        {"long R", bench.io, "08 00 52 00 00 00 00 00", "07 00 52 01 00 00 00 "},
        {"S with payload", bench.io, "04 00 53 00", "07 00 53 01 00 00 00 "},
        {"S without recipe", bench.io, "03 00 53", "07 00 53 06 00 00 00 "},
        {"unknown letter", bench.io, "03 00 7A", "07 00 7A 02 00 00 00 "},
        {"page on the control port", bench.control, "07 00 52 00 00 00 00",
         "07 00 52 02 00 00 00 "},
        {"O with too few ids", bench.io, "0D 00 4F 00 00 00 00 02 00 04 03 02 01",
         "07 00 4F 01 00 00 00 "},
        {"O with an unknown id", bench.io, "0D 00 4F 00 00 00 00 01 00 05 03 02 01",
         "07 00 4F 03 00 00 00 "},
        {"I with an output", bench.io, "09 00 49 01 00 04 03 02 01", "07 00 49 03 00 00 00 "},
        {"unknown method", bench.io, "06 00 6D 02 02 00", "07 00 6D 04 00 00 00 "},
        {"arguments cut off", bench.io, "08 00 6D 01 02 01 0B 00", "07 00 6D 01 00 00 00 "},
        {"argument of no type", bench.io, "08 00 6D 01 02 01 63 00", "07 00 6D 01 00 00 00 "},
        {"more than its arguments", bench.io, "07 00 6D 01 02 00 00", "07 00 6D 01 00 00 00 "},
        {"argument too many", bench.io, "08 00 6D 01 04 01 02 00", "07 00 6D 05 00 00 00 "},
        {"IO method on the control port", bench.control, "06 00 6D 01 04 00",
         "07 00 6D 0A 00 00 00 "}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(c.peer.ask(c.request), c.reply);
        EXPECT_EQ(c.peer.ask("06 00 6D 01 02 00"), "07 00 6D 00 00 00 00 ");
    }
    EXPECT_EQ(bench.simulator.counters().refused, std::size(cases));
}

TEST(Exchange, EndsTheConnectionWhenItLosesStep) {
    Bench bench;
    EXPECT_EQ(bench.io.ask("02 00 56 01"), "07 00 56 01 00 00 00 ");
    EXPECT_EQ(bench.io.end(), Peer::End::closed);
}

TEST(Exchange, TakesMessagesHoweverTheyAreCut) {
    Bench bench(small_options());
    bench.io.send(test::bytes("06 00 6D 01 02 00 06 00 6D"));
    EXPECT_EQ(test::hex(bench.io.message()), "07 00 6D 00 00 00 00 ");
    bench.io.send(test::bytes("02 02 00"));
    EXPECT_EQ(test::hex(bench.io.message()), "07 00 6D 04 00 00 00 ");
    const std::vector<test::Bytes> expected{test::bytes("06 00 6D 01 02 00"),
                                            test::bytes("06 00 6D 02 02 00")};
    EXPECT_EQ(bench.simulator.requests(sim::Port::io), expected);
}

TEST(Exchange, HoldsInputsAndEchoesThemInPackages) {
    sim::Options options = small_options();
    options.rate = 200;
    Bench bench(options);
    EXPECT_EQ(bench.io.ask("0D 00 49 02 00 " + word(0x33) + word(0x22)),
              "08 00 49 00 00 00 00 01 ");
    EXPECT_EQ(bench.io.ask("11 00 4F 00 00 00 00 02 00 " + word(0x01020304) + word(0x33)),
              "08 00 4F 00 00 00 00 02 ");
    bench.io.send(test::bytes("0E 00 55 01 CD AB " + test::number(1.5)));
    ASSERT_TRUE(bench.simulator.wait_for_inputs(1));
    EXPECT_EQ(test::hex(bench.simulator.input("step")), "CD AB ");
    EXPECT_EQ(test::hex(bench.simulator.input("speed")), test::number(1.5));
    bench.io.ask("03 00 53");
    EXPECT_EQ(test::hex(bench.stream.message()),
              "12 00 55 02 04 03 02 01 04 03 02 01 04 03 02 01 CD AB ");
    EXPECT_TRUE(bench.simulator.set_output("strange", test::bytes("09")));
    EXPECT_TRUE(test::wait_until([&] {
        return test::hex(bench.stream.message()) ==
               "12 00 55 02 09 00 00 00 00 00 00 00 00 00 00 00 CD AB ";
    }));
}

TEST(Exchange, CountsUnfitInputsWithoutAnAnswer) {
    Bench bench(small_options());
    bench.io.ask("09 00 49 01 00 " + word(0x33));
    bench.io.send(test::bytes("05 00 55 01 AA 06 00 55 02 AA BB"));
    ASSERT_TRUE(bench.simulator.wait_for_requests('U', 2));
    EXPECT_EQ(bench.simulator.counters().refused, 2U);
    EXPECT_EQ(bench.simulator.counters().inputs, 0U);
    EXPECT_EQ(bench.io.ask("03 00 50"), "07 00 50 00 00 00 00 ");
}

TEST(Exchange, BeginsAnewWithEachConnection) {
    Bench bench;
    bench.io.ask("0B 00 56 02 00 00 00 00 00 00 00");
    Peer second(bench.address, sim::Port::io);
    second.send(test::bytes("07 00 52 00 00 00 00"));
    EXPECT_EQ(second.message().at(7), 10) << "the page size of clients that have not negotiated";
}

TEST(Simulator, SaysWhichPortIsTaken) {
    Bench bench;
    sim::Options options;
    options.address = bench.address;
    try {
        sim::Simulator second(options);
        FAIL();
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), EADDRINUSE);
        EXPECT_NE(std::string(error.what()).find(bench.address + ":2295"), std::string::npos);
    }
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
