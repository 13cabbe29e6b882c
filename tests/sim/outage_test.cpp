// A controller that is out of order, as its client meets it.
#include <gtest/gtest.h>

#include "tests/sim/peer.h"
#include "tests/support/process.h"

namespace {

using test::Bench;
using test::Peer;

constexpr const char* versions = "03 00 76";
constexpr auto moment = std::chrono::milliseconds(50);

enum class Fate { refused, silent, closed, reset, answers };

// What becomes of the connection that there is, and of a new one.
struct Outage {
    const char* fault;
    Fate old;
    Fate fresh;
};

const Outage outages[] = {
    {"silence=forever", Fate::silent, Fate::silent},
    {"silence=60000,port=io", Fate::silent, Fate::silent},
    {"silence=60000,port=control", Fate::answers, Fate::answers},
    {"half-open=60000", Fate::silent, Fate::silent},
    {"refuse=forever", Fate::answers, Fate::refused},
    {"reboot=60000", Fate::reset, Fate::refused},
    {"reboot=60000,close", Fate::closed, Fate::refused},
    {"reboot=60000,abandon", Fate::silent, Fate::refused},
    {"taken", Fate::reset, Fate::answers},
    {"disconnect,close,port=io", Fate::closed, Fate::answers},
    {"disconnect,port=control", Fate::answers, Fate::answers},
};

Fate fate(Peer& peer) {
    if (!peer.connected()) {
        return Fate::refused;
    }
    if (!peer.readable(moment)) {
        peer.send(test::bytes(versions));
    }
    if (!peer.readable(moment)) {
        return Fate::silent;
    }
    const Peer::End end = peer.end();
    return end == Peer::End::none    ? Fate::answers
           : end == Peer::End::reset ? Fate::reset
                                     : Fate::closed;
}

class OutOfOrder : public ::testing::TestWithParam<const char*> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Begins, OutOfOrder, ::testing::Values("", "type=v,"));

// At once, or behind a reply that still arrives.
TEST_P(OutOfOrder, IsWhatTheFaultSaysUntilItRecovers) {
    const std::string when = GetParam();
    Bench bench;
    for (const Outage& outage : outages) {
        SCOPED_TRACE(outage.fault);
        Peer old(bench.address, sim::Port::io);
        if (when.empty()) {
            old.ask(versions);
        }
        bench.simulator.inject(sim::parse_fault(when + outage.fault));
        if (!when.empty()) {
            EXPECT_EQ(old.ask(versions).substr(3, 5), "00 76");
        }
        EXPECT_EQ(fate(old), outage.old);
        Peer fresh(bench.address, sim::Port::io);
        EXPECT_EQ(fate(fresh), outage.fresh);
        bench.simulator.clear_faults();
        Peer next(bench.address, sim::Port::io);
        EXPECT_EQ(fate(next), Fate::answers);
    }
}

TEST(Reboot, EndsByItselfWithAFreshArmAndTheNewCatalogue) {
    Bench bench(test::small_controller());
    sim::Catalogue other;
    other.outputs = {{"new", 7, sim::Type::u8}};
    bench.simulator.raise_error(3);
    bench.simulator.reboot(moment, other);
    EXPECT_TRUE(test::wait_until([&] { return Peer(bench.address, sim::Port::io).connected(); }));
    Peer io(bench.address, sim::Port::io);
    EXPECT_EQ(io.ask("07 00 52 00 00 00 00"),
              "11 00 52 00 00 00 00 01 03 6E 65 77 07 00 00 00 02 ");
    EXPECT_EQ(bench.simulator.error_code(), 0U);
}

TEST(HalfOpen, TakesUpWhatCameMeanwhile) {
    Bench bench;
    bench.simulator.half_open(moment);
    Peer late(bench.address, sim::Port::io);
    EXPECT_EQ(late.ask(versions), bench.io.ask(versions));
}
