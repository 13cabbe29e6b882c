// Each kind of fault, as a client meets it.
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "sim/catalogue_edits.h"
#include "tests/sim/peer.h"

namespace {

using namespace std::chrono_literals;
using sim::parse_fault;
using test::Bench;
using test::Peer;
using Next = Peer::Next;

constexpr const char* kVersions = "03 00 76";
constexpr const char* kVersionsReply = "10 00 76 00 00 00 00 03 00 03 31 2E 32 01 41 00 ";
constexpr const char* kPage = "07 00 52 00 00 00 00";

sim::Options small_controller() {
    sim::Options options;
    options.rate = 500;
    options.versions = {3, "1.2", "A", ""};
    options.catalogue.outputs = {{"package_counter", 1, sim::Type::u32},
                                 {"controller_time", 2, sim::Type::f64}};
    options.catalogue.methods = {{"go", 0x0201}, {"halt", 0x0202}};
    return options;
}

uint32_t counter(const Peer& stream) {
    return test::bytes(stream.message()).at(4);
}

double controller_time(const Peer& stream) {
    double time = 0;
    std::memcpy(&time, test::bytes(stream.message()).data() + 4, sizeof time);
    return time;
}

}  // namespace

TEST(Fault, ChangesWhatOneReplySays) {
    Bench bench(small_controller());
    struct Case {
        const char* fault;
        const char* request;
        const char* reply;
    };
    const Case cases[] = {
        {"type=v,status=9", kVersions, "07 00 76 09 00 00 00 "},
        {"length=4000", kVersions, "A0 0F 76 00 00 00 00 03 00 03 31 2E 32 01 41 00 "},
        {"letter=V", kVersions, "10 00 56 00 00 00 00 03 00 03 31 2E 32 01 41 00 "},
        {"size=5", kVersions, "05 00 76 00 00 "},
        {"size=18", kVersions, "12 00 76 00 00 00 00 03 00 03 31 2E 32 01 41 00 00 00 "},
        {"size=5,length=16", kVersions, "10 00 76 00 00 "},
        {"bytes=0badf00d", kVersions, "0B AD F0 0D "},
        {"empty", kVersions, "08 00 76 00 00 00 00 00 "},
        {"stray=AB,after=4", kVersions, "AB 10 00 76 "},
        {"inverted=0+7", kVersions, "EF 00 76 00 00 00 00 FC 00 03 31 2E 32 01 41 00 "},
        {"pieces=3,pause=0.5", kVersions, kVersionsReply},
        {"doubled,after=2", kVersions, "10 00 10 00 "},
        {"version=2,status=1", "0B 00 56 02 00 00 00 00 00 00 00", "07 00 56 01 00 00 00 "},
        {"entries=1,count=7", kPage,
         "1D 00 52 00 00 00 00 07 0F 70 61 63 6B 61 67 65 5F 63 6F 75 6E 74 65 72 01 00 00 00 04 "},
        {"recipe=9", "0D 00 4F 00 00 00 00 01 00 01 00 00 00", "08 00 4F 00 00 00 00 09 "},
    };
    for (const Case& c : cases) {
        bench.simulator.inject(parse_fault(c.fault));
        bench.io.send(c.request);
        EXPECT_EQ(bench.io.read(test::bytes(c.reply).size()), c.reply) << c.fault;
        EXPECT_EQ(bench.io.ask(kVersions), kVersionsReply) << c.fault;
    }
}

TEST(Fault, HitsTheMessagesItNamesAsOftenAsItSays) {
    const std::pair<const char*, const char*> cases[] = {
        {"method=halt,status=8,skip=1,times=2", "088000"},
        {"status=8,every=3", "080080"},
        {"status=8,skip=1,times=always", "888888"},
        {"status=8,for=60000", "888888"},
        {"status=8,at=60000", "000000"},
        {"status=8,port=control", "000000"},
    };
    Bench bench(small_controller());
    for (const auto& [fault, expected] : cases) {
        bench.simulator.inject(parse_fault(fault));
        bench.io.ask("06 00 6D 01 02 00");
        std::string met;
        for (size_t i = 0; i < 6; ++i) {
            met += bench.io.ask("06 00 6D 02 02 00")[10];
        }
        EXPECT_EQ(met, expected) << fault;
        bench.simulator.clear_faults();
        EXPECT_EQ(bench.io.ask(kVersions), kVersionsReply) << fault;
    }
}

TEST(Fault, ComesAgainWithItsSeed) {
    std::string met[3];
    for (size_t run = 0; run < 3; ++run) {
        Bench bench(small_controller());
        bench.simulator.inject(
            parse_fault(std::string("noise=2,chance=50,seed=") + (run < 2 ? "7" : "8")));
        for (int i = 0; i < 20; ++i) {
            bench.io.send(kVersions);
            met[run] += bench.io.read(16);
        }
    }
    EXPECT_EQ(met[0], met[1]);
    EXPECT_NE(met[0], met[2]);
}

TEST(Fault, BefallsPackages) {
    const std::pair<const char*, std::vector<uint32_t>> cases[] = {
        {"package,lost,every=2", {1, 3, 5}},
        {"package,doubled", {1, 1, 2}},
        {"package,swapped", {2, 1, 3}},
        {"package,frozen,skip=1", {1, 1, 2}},
        {"package,missed=5,skip=1", {1, 7, 8}},
        {"package,burst=3,delay=1", {1, 2, 3}},
        {"package,jitter=3,times=always", {1, 2, 3}},
    };
    for (const auto& [fault, expected] : cases) {
        Bench bench(small_controller());
        bench.simulator.inject(parse_fault(fault));
        bench.stream_outputs({1});
        for (const uint32_t each : expected) {
            EXPECT_EQ(counter(bench.stream), each) << fault;
        }
    }
}

TEST(Fault, CutsTheStreamAtAByte) {
    for (const auto& [fault, end] : {std::pair("package,close,total=21", Next::close),
                                     std::pair("package,reset,skip=2,after=5", Next::reset),
                                     std::pair("package,total=21,silence=forever", Next::silence),
                                     std::pair("package,skip=2,after=5,taken", Next::silence)}) {
        Bench bench(small_controller());
        bench.simulator.inject(parse_fault(fault));
        bench.stream_outputs({1});
        EXPECT_EQ(bench.stream.read(21).size(), 3 * 21U) << fault;
        EXPECT_EQ(bench.stream.next(end == Next::silence ? 50ms : 10s), end) << fault;
    }
}

TEST(Fault, DisturbsTheClock) {
    Bench bench(small_controller());
    bench.stream_outputs({2});
    const double before = controller_time(bench.stream);
    bench.simulator.inject(parse_fault("clock-step=60000"));
    while (controller_time(bench.stream) < before + 60) {
    }
    bench.simulator.inject(parse_fault("rate=100,drift=-100000"));
    const auto start = std::chrono::steady_clock::now();
    const uint64_t sent = bench.simulator.counters().packages_sent;
    ASSERT_TRUE(bench.simulator.wait_for_packages(sent + 50));
    EXPECT_GT(std::chrono::steady_clock::now() - start, 530ms) << "50 packages in 555 ms";
}

// What becomes of the connection that there is, and of a new one.
namespace {

enum class Fate { refused, silent, closed, reset, answers };

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
    {"reboot 60000 close", Fate::closed, Fate::refused},
    {"reboot=60000,abandon", Fate::silent, Fate::refused},
    {"taken", Fate::reset, Fate::answers},
    {"disconnect,close,port=io", Fate::closed, Fate::answers},
    {"disconnect,port=control", Fate::answers, Fate::answers},
};

// Waits longer for what is to come than for what is not.
Fate fate(const Peer& peer, Fate expected) {
    constexpr Fate kFates[] = {Fate::silent, Fate::answers, Fate::closed, Fate::reset};
    if (!peer.connected()) {
        return Fate::refused;
    }
    Next next = peer.next(expected == Fate::closed ? 10s : 50ms);
    if (next == Next::silence) {
        peer.send(kVersions);
        next = peer.next(expected == Fate::silent ? 50ms : 10s);
    }
    return kFates[static_cast<size_t>(next)];
}

class OutOfOrder : public ::testing::TestWithParam<const char*> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Begins, OutOfOrder, ::testing::Values("", "type=v,"));

// At once, or behind a reply that still arrives.
TEST_P(OutOfOrder, IsWhatTheFaultSaysUntilItRecovers) {
    const bool at_once = *GetParam() == '\0';
    Bench bench;
    for (const Outage& outage : outages) {
        SCOPED_TRACE(outage.fault);
        const Peer old(bench.address, sim::Port::io);
        if (at_once) {
            old.ask(kVersions);
        }
        bench.simulator.inject(parse_fault(std::string(GetParam()) + outage.fault));
        if (!at_once) {
            EXPECT_EQ(old.ask(kVersions).substr(3, 5), "00 76");
        }
        EXPECT_EQ(fate(old, outage.old), outage.old);
        EXPECT_EQ(fate(Peer(bench.address, sim::Port::io), outage.fresh), outage.fresh);
        bench.simulator.clear_faults();
        EXPECT_EQ(Peer(bench.address, sim::Port::io).ask(kVersions).substr(3, 5), "00 76");
    }
}

TEST(Outage, EndsByItself) {
    Bench bench;
    sim::Catalogue other;
    other.outputs = {{"new", 7, sim::Type::u8}};
    bench.simulator.raise_error(3);
    bench.simulator.reboot(20ms, other);
    EXPECT_TRUE(test::wait_until([&] { return Peer(bench.address, sim::Port::io).connected(); }));
    EXPECT_EQ(Peer(bench.address, sim::Port::io).ask(kPage),
              "11 00 52 00 00 00 00 01 03 6E 65 77 07 00 00 00 02 ");
    EXPECT_EQ(bench.simulator.error_code(), 0U);
    const Peer waiting(bench.address, sim::Port::io);
    bench.simulator.half_open(20ms);
    EXPECT_EQ(Peer(bench.address, sim::Port::io).ask(kVersions), waiting.ask(kVersions));
}

TEST(Catalogue, ChangesWithTheNextSession) {
    Bench bench(small_controller());
    const std::string before = bench.io.ask(kPage);
    bench.simulator.inject(parse_fault("rename=package_counter:p,retype=p:3,renumbered,reordered"));
    EXPECT_EQ(bench.io.ask(kPage), before);
    bench.simulator.inject(parse_fault("remove=controller_time,filled=2"));
    EXPECT_EQ(Peer(bench.address, sim::Port::io).ask(kPage),
              "1D 00 52 00 00 00 00 02 01 70 02 00 00 00 03 08 66 69 6C 6C 65 72 5F 31 "
              "03 00 00 00 0B ");
    EXPECT_THROW(bench.simulator.inject(parse_fault("remove=nobody")), std::invalid_argument);
}

TEST(FaultText, NamesTheItemItCannotRead) {
    for (const char* wrong : {"foo", "times=x", "status=256", "type=ab", "source=1:2:3", "bytes=zz",
                              "delay=-1", "cuts=1+x", "lost=1", "skip", "reboot=soon", "port=2295",
                              "rename=a", "rate=0", "catalogue=/none"}) {
        try {
            parse_fault(std::string("package,") + wrong);
            ADD_FAILURE() << wrong;
        } catch (const std::invalid_argument& error) {
            EXPECT_NE(std::string(error.what()).find('"' + std::string(wrong)), std::string::npos)
                << error.what();
        }
    }
    const sim::Fault fault = parse_fault("package,tagged,source=02:00:00:00:00:ff,times=always");
    EXPECT_EQ(fault.target, sim::Target::package);
    EXPECT_EQ(fault.source, (sim::MacAddress{2, 0, 0, 0, 0, 0xFF}));
    EXPECT_EQ(parse_fault("reboot=5").target, sim::Target::controller);
    EXPECT_EQ(parse_fault("reboot=5,type=O").target, sim::Target::reply);
}
