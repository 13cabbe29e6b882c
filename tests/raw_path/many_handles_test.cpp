// Several simulated controllers at 1 kHz beside each other, and set-points at 1 kHz.
#include <sched.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "tests/raw_path/raw_path.h"
#include "tests/raw_path/simulated_client.h"
#include "tests/support/network_namespace.h"

using namespace test;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

class ManyHandles : public RawPath {
protected:
    // A real-time priority, where the machine grants one, keeps the load of others out of the
    // measurement. All threads inherit it.
    void SetUp() override {
        const sched_param priority{.sched_priority = 1};
        sched_setscheduler(0, SCHED_FIFO, &priority);
        RawPath::SetUp();
    }

    // On one cable, on another, and over TCP.
    std::vector<std::unique_ptr<SimulatedClient>> clients_of_all_kinds() {
        make_veth_pair("host1", "02:00:00:00:01:0a", "robot1", "02:00:00:00:01:0b");
        std::vector<std::unique_ptr<SimulatedClient>> clients;
        clients.push_back(std::make_unique<SimulatedClient>(1, Cable{"host0", "robot0", {}}));
        clients.push_back(std::make_unique<SimulatedClient>(2, std::nullopt));
        clients.push_back(std::make_unique<SimulatedClient>(
            3, Cable{"host0", "robot0", sim::MacAddress{2, 0, 0, 0, 0, 0xBB}}));
        clients.push_back(std::make_unique<SimulatedClient>(4, Cable{"host1", "robot1", {}}));
        return clients;
    }
};

// What an application that looks often gets to see of one stream.
class Watch {
public:
    using Milliseconds = std::chrono::duration<double, std::milli>;

    void look(const SimulatedClient& client) {
        const uint32_t counter = client.counter();
        if (counter == last_) {
            return;
        }
        EXPECT_GT(counter, last_);
        first_ = first_ == 0 ? counter : first_;
        last_ = counter;
        ++seen_;
        offsets_.push_back(Milliseconds(steady_clock::now().time_since_epoch()).count() - counter);
    }

    double share() const { return first_ == 0 ? 0 : seen_ / (last_ - first_ + 1.0); }
    // How much later than the promptest one a package was seen at the most: of a thousand packages
    // one may be late because the machine, and so the controller itself, was.
    double age() const {
        if (offsets_.empty()) {
            return 1e9;
        }
        std::vector<double> sorted = offsets_;
        std::sort(sorted.begin(), sorted.end());
        return sorted[sorted.size() * 999 / 1000] - sorted.front();
    }

private:
    uint32_t first_ = 0;
    uint32_t last_ = 0;
    double seen_ = 0;
    std::vector<double> offsets_;
};

struct Worst {
    double share = 1;
    double age = 0;
};

// The worst of all streams within two seconds.
Worst watch(const std::vector<std::unique_ptr<SimulatedClient>>& clients) {
    std::vector<Watch> watches(clients.size());
    const auto end = steady_clock::now() + milliseconds(2000);
    while (steady_clock::now() < end) {
        for (size_t i = 0; i < clients.size(); ++i) {
            watches[i].look(*clients[i]);
        }
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    Worst worst;
    for (const Watch& one : watches) {
        worst.share = std::min(worst.share, one.share());
        worst.age = std::max(worst.age, one.age());
    }
    return worst;
}

}  // namespace

// What a loaded machine does to one attempt it does not do to all of them.
TEST_F(ManyHandles, EachShowsItsPackagesInTime) {
    const auto clients = clients_of_all_kinds();
    for (const auto& client : clients) {
        client->start();
    }
    Worst best{0, 1e9};
    for (int attempt = 0; attempt < 15 && (best.share < 0.99 || best.age > 5); ++attempt) {
        const Worst now = watch(clients);
        best = {std::max(best.share, now.share), std::min(best.age, now.age)};
        RecordProperty("share", std::to_string(now.share));
        RecordProperty("age_ms", std::to_string(now.age));
    }
    EXPECT_GE(best.share, 0.99);
    EXPECT_LE(best.age, 5.0);
}

class SetPoints : public ManyHandles, public ::testing::WithParamInterface<bool> {};

TEST_P(SetPoints, AtOneKilohertzAllArriveInOrder) {
    constexpr uint32_t kCount = 3000;
    const bool nack = GetParam();
    SimulatedClient client(1, Cable{"host0", "robot0", {}}, nack);
    client.start();
    for (uint32_t i = 1; i <= kCount; ++i) {
        ASSERT_EQ(client.servo(i * 1e-4), 0);
        if (i % 10 == 0) {
            ASSERT_EQ(vexo_input_data_send(client.handle(), 2, &i), 0);
        }
        if (i % 50 == 0) {  // a station that is too slow loses frames
            ASSERT_TRUE(client.simulator().wait_for_set_points(i));
        }
        std::this_thread::sleep_for(std::chrono::microseconds(900));
    }
    ASSERT_TRUE(client.simulator().wait_for_set_points(kCount));
    ASSERT_TRUE(client.simulator().wait_for_inputs(kCount / 10));
    const std::vector<sim::SetPoint> points = client.simulator().set_points();
    ASSERT_EQ(points.size(), kCount);
    for (uint32_t i = 1; i <= kCount; ++i) {
        const sim::SetPoint& point = points[i - 1];
        ASSERT_EQ(point.sequence, i);
        ASSERT_EQ(point.joints, (std::vector<double>{i * 1e-4, 0, 0, 0, 0, 0}));
        ASSERT_EQ(point.port, sim::Port::raw);
    }
    EXPECT_EQ(client.simulator().counters().frames_rejected, 0U);
    EXPECT_EQ(client.simulator().inputs().back().port, sim::Port::raw);
}

INSTANTIATE_TEST_SUITE_P(Nack, SetPoints, ::testing::Bool());
