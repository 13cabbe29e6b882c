// Without this a package could be readable a tick or more after its frame was sent.
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "tests/raw_path/raw_path.h"
#include "tests/support/network_namespace.h"

using namespace test;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

constexpr uint8_t kOutput = 144;

uint32_t number_of(const RawSession& session) {
    uint8_t buffer[8] = {};
    EXPECT_EQ(vexo_ouput_data_receive(session.handle, 0, buffer, sizeof buffer), 0);
    return read_u32(buffer + 4);
}

Bytes numbered_frame(uint32_t number) {
    Bytes values(4);
    write_u32(values.data(), number);
    return controller_frame(kOutput, package(values));
}

// How long it takes from now until package `number` can be read; none before it may appear that is
// older than the one shown last.
microseconds time_until_shown(const RawSession& session, uint32_t number) {
    const auto sent = steady_clock::now();
    uint32_t last = 0;
    while (last != number && steady_clock::now() - sent < std::chrono::seconds(10)) {
        const uint32_t shown = number_of(session);
        EXPECT_GE(shown, last);
        last = shown;
        std::this_thread::sleep_for(microseconds(20));
    }
    EXPECT_EQ(last, number);
    return std::chrono::duration_cast<microseconds>(steady_clock::now() - sent);
}

microseconds median(std::vector<microseconds> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2),
                     values.end());
    return values[values.size() / 2];
}

class RawLatency : public RawPath {
protected:
    void SetUp() override {
        run_ahead_of_others();
        RawPath::SetUp();
    }

    // Of packages that reach an idle thread, at no fixed phase to any tick.
    microseconds idle_latency(const RawSession& session) {
        std::vector<microseconds> latencies;
        for (uint32_t number = 1; number <= 100; ++number) {
            const Bytes frame = numbered_frame(number);
            std::this_thread::sleep_for(microseconds(6000 + 97 * (number % 50)));
            robot_->send(frame);
            latencies.push_back(time_until_shown(session, number));
        }
        return median(latencies);
    }
};

enum class Silent { none, raw, tcp };
struct Company {
    const char* name;
    Silent before;
    Silent after;
};
void PrintTo(const Company& one, std::ostream* out) {
    *out << one.name;
}
class RawLatencyInCompany : public RawLatency, public ::testing::WithParamInterface<Company> {
protected:
    // A handle whose controller sends nothing, on a cable of its own.
    std::unique_ptr<RawSession> silent_session(Silent kind, int number) {
        if (kind == Silent::none) {
            return nullptr;
        }
        auto session = std::make_unique<RawSession>(number);
        if (kind == Silent::tcp) {
            session->negotiate(2);
            write_u32(session->dataspace() + kOutputLengthOffset, 40);
        } else {
            const std::string host = "host" + std::to_string(number);
            make_veth_pair(host, "02:00:00:00:00:0a", "robot" + std::to_string(number),
                           "02:00:00:00:00:0b");
            session->negotiate_raw(0, host.c_str());
        }
        return session;
    }
};

}  // namespace

TEST_P(RawLatencyInCompany, IsFarBelowATick) {
    const auto before = silent_session(GetParam().before, 2);
    RawSession session;
    session.negotiate_raw(0);
    const auto after = silent_session(GetParam().after, 3);
    session.start();
    for (RawSession* other : {before.get(), after.get()}) {
        if (other != nullptr) {
            other->start();
        }
    }
    EXPECT_LT(idle_latency(session), milliseconds(1));
}

INSTANTIATE_TEST_SUITE_P(Silent, RawLatencyInCompany,
                         ::testing::Values(Company{"alone", Silent::none, Silent::none},
                                           Company{"raw before", Silent::raw, Silent::none},
                                           Company{"raw after", Silent::none, Silent::raw},
                                           Company{"tcp before", Silent::tcp, Silent::none},
                                           Company{"tcp after", Silent::none, Silent::tcp}));

// The thread finds out by itself, and at once, that there is something to wait for again.
TEST_F(RawLatency, OfTheFirstPackageAfterAPauseIsNoLonger) {
    RawSession session;
    session.negotiate_raw(0);
    session.start();
    std::vector<microseconds> latencies;
    for (uint32_t number = 1; number <= 30; ++number) {
        session.pause();
        ASSERT_TRUE(wait_until([&] { return session.bytes_at(kStoreOffset, 8) == Bytes(8); }));
        std::this_thread::sleep_for(microseconds(7000 + 97 * number));
        session.start();
        robot_->send(numbered_frame(number));
        latencies.push_back(time_until_shown(session, number));
    }
    EXPECT_LT(median(latencies), milliseconds(1));
}

TEST_F(RawLatency, IsNotSpoiltByAFloodOnAnotherLink) {
    make_veth_pair("host1", "02:00:00:00:00:0a", "robot1", "02:00:00:00:00:0b");
    RawSession flooded(1);
    RawSession session(2);
    flooded.negotiate_raw(0, "host1");
    session.negotiate_raw(0);
    flooded.start();
    session.start();
    std::atomic<bool> stop{false};
    std::thread flood([&] {
        const sched_param usual{};
        sched_setscheduler(0, SCHED_OTHER, &usual);
        const auto port = Port::ethernet("robot1");
        const Bytes foreign = from_foreign_station(controller_frame(kOutput, package({1})));
        while (!stop) {
            port->send(foreign);
        }
    });
    EXPECT_LT(idle_latency(session), milliseconds(2));
    stop = true;
    flood.join();
}
