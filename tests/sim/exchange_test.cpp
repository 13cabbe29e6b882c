// Requests that a simulator refuses or does not understand.
#include <gtest/gtest.h>

#include <cmath>

#include "sim/frame.h"
#include "tests/sim/peer.h"
#include "tests/support/network_namespace.h"
#include "tests/support/process.h"
#include "tests/support/raw_port.h"

namespace {

using test::Bench;
using test::Bytes;
using test::number;
using test::operator+;
using test::Peer;
using test::word;

constexpr const char* go = "06 00 6D 01 02 00";
constexpr const char* gone = "07 00 6D 00 00 00 00 ";

}  // namespace

TEST(Exchange, RefusesNonsenseAndGoesOn) {
    Bench bench(test::small_controller());
    bench.io.ask("0B 00 56 02 00 00 00 00 00 00 00");
    const std::string servo = "6D 01 03 05 0B " + number(0.008) + "04 " + word(1) + "02 00 ";
    struct Case {
        const char* what;
        Peer& peer;
        std::string request;
        sim::Status status;
    };
    using enum sim::Status;
    const Case cases[] = {
        {"short V", bench.io, "0A 00 56 01 00 00 00 00 00 00", malformed},
        {"raw V without address", bench.io, "0B 00 56 03 00 01 00 00 00 00 00", malformed},
        {"raw V without interface", bench.io, "11 00 56 03 00 01 00 00 00 00 00 02 00 00 00 00 01",
         no_raw_path},
        {"long R", bench.io, "08 00 52 00 00 00 00 00", malformed},
        {"S with payload", bench.io, "04 00 53 00", malformed},
        {"S without recipe", bench.io, "03 00 53", no_recipe},
        {"unknown letter", bench.io, "03 00 7A", unknown_type},
        {"page on the control port", bench.control, "07 00 52 00 00 00 00", unknown_type},
        {"O with too few ids", bench.io, "0D 00 4F 00 00 00 00 02 00 04 03 02 01", malformed},
        {"O with an unknown id", bench.io, "0D 00 4F 00 00 00 00 01 00 05 03 02 01",
         unknown_variable},
        {"I with an output", bench.io, "09 00 49 01 00 04 03 02 01", unknown_variable},
        {"unknown method", bench.io, "06 00 6D 02 02 00", unknown_method},
        {"arguments cut off", bench.io, "08 00 6D 01 02 01 0B 00", malformed},
        {"argument of no type", bench.io, "08 00 6D 01 02 01 63 00", malformed},
        {"more than its arguments", bench.io, "07 00 6D 01 02 00 00", malformed},
        {"argument too many", bench.io, "08 00 6D 01 04 01 02 00", bad_argument},
        {"IO method on the control port", bench.control, "06 00 6D 01 04 00", wrong_port},
        {"speed above 100", bench.io, "0F 00 6D 01 05 01 0B " + number(100.5), bad_argument},
        {"speed of no number", bench.io, "0F 00 6D 01 05 01 0B " + number(std::nan("")),
         bad_argument},
        {"fifth tool output", bench.io, "0A 00 6D 01 06 02 02 04 01 01", bad_argument},
        {"output neither on nor off", bench.io, "0A 00 6D 01 06 02 02 00 01 02", bad_argument},
        {"set-point on the IO port", bench.io, "22 00 " + servo + "13 01 00 0B " + number(0),
         wrong_port},
        {"infinite joint", bench.control, "22 00 " + servo + "13 01 01 0B " + number(INFINITY),
         bad_argument},
        {"set-point of version 1", bench.control, "21 00 " + servo + "02 01 0B " + number(0),
         bad_argument}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const uint8_t letter = test::bytes(c.request)[2];
        EXPECT_EQ(c.peer.ask(c.request),
                  test::hex({7, 0, letter, static_cast<uint8_t>(c.status), 0, 0, 0}));
        EXPECT_EQ(c.peer.ask(go), gone);
    }
    EXPECT_EQ(bench.simulator.counters().refused, std::size(cases));
    EXPECT_TRUE(bench.simulator.set_points().empty());
}

TEST(Exchange, EndsTheConnectionWhenItLosesStep) {
    Bench bench;
    EXPECT_EQ(bench.io.ask("02 00 56 01"), "07 00 56 01 00 00 00 ");
    EXPECT_EQ(bench.io.end(), Peer::End::closed);
}

TEST(Exchange, TakesMessagesHoweverTheyAreCut) {
    Bench bench(test::small_controller());
    bench.io.send(test::bytes(go) + test::bytes("06 00 6D"));
    EXPECT_EQ(test::hex(bench.io.message()), gone);
    bench.io.send(test::bytes("01 02 00"));
    EXPECT_EQ(test::hex(bench.io.message()), gone);
    EXPECT_EQ(bench.simulator.requests(sim::Port::io), std::vector<Bytes>(2, test::bytes(go)));
}

TEST(Exchange, CountsUnfitInputsWithoutAnAnswer) {
    Bench bench(test::small_controller());
    bench.io.ask("09 00 49 01 00 " + word(0x33));
    bench.io.send(test::bytes("05 00 55 01 AA 06 00 55 02 AA BB"));
    ASSERT_TRUE(bench.simulator.wait_for_requests('U', 2));
    EXPECT_EQ(bench.simulator.counters().refused, 2U);
    EXPECT_EQ(bench.simulator.counters().inputs, 0U);
    EXPECT_EQ(bench.io.ask(go), gone);
}

TEST(Exchange, BeginsAnewWithEachConnection) {
    Bench bench;
    bench.io.ask("0B 00 56 02 00 00 00 00 00 00 00");
    Peer second(bench.address, sim::Port::io);
    second.send(test::bytes("07 00 52 00 00 00 00"));
    EXPECT_EQ(second.message().at(7), 10) << "the page size of clients that have not negotiated";
}

TEST(Exchange, TakesFramesOfItsClientOnly) {
    if (const std::string reason = test::enter_network_namespace(); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    test::make_veth_pair("client0", "02:00:00:00:00:0a", "controller0", "02:00:00:00:00:0b");
    sim::Options options = test::small_controller();
    options.interface = "controller0";
    Bench bench(options);
    const auto cable = test::Port::ethernet("client0");
    EXPECT_EQ(bench.io.ask("11 00 56 03 00 01 00 00 00 00 00 02 00 00 00 00 0A"),
              "0D 00 56 00 00 00 00 02 00 00 00 00 0B ");
    bench.io.ask("09 00 49 01 00 " + word(0x33));
    const auto send = [&](sim::FrameCode code, const char* fault) {
        const sim::MacAddress client{2, 0, 0, 0, 0, 0x0A};
        const sim::MacAddress controller{2, 0, 0, 0, 0, 0x0B};
        const Bytes input = test::bytes("06 00 55 01 34 12");
        cable->send(
            sim::build_frame({controller, client, code, 0, input}, sim::parse_fault(fault)));
    };
    for (const char* fault : {"source=02:00:00:00:00:0c", "altered", "payload=200"}) {
        send(sim::FrameCode::input, fault);
    }
    send(sim::FrameCode::command, "");
    send(sim::FrameCode::input, "");
    EXPECT_TRUE(bench.simulator.wait_for_inputs(1));
    EXPECT_EQ(test::hex(bench.simulator.input("step")), "34 12 ");
    EXPECT_EQ(bench.simulator.counters().inputs, 1U);
    EXPECT_EQ(bench.simulator.counters().frames_rejected, 4U);
}
