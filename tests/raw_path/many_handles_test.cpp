// Without this one of several controllers at 1 kHz could hold up another.
#include <algorithm>
#include <thread>
#include <vector>

#include "tests/end_to_end/application.h"
#include "tests/raw_path/raw_path.h"
#include "tests/support/network_namespace.h"

using namespace test;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

class ManyHandles : public RawPath {
protected:
    void SetUp() override {
        run_ahead_of_others();
        RawPath::SetUp();
    }

    // On one cable, on another, and over TCP.
    std::vector<std::unique_ptr<Station>> stations_of_all_kinds() {
        make_veth_pair("host1", "02:00:00:00:01:0a", "robot1", "02:00:00:00:01:0b");
        const sim::MacAddress other{2, 0, 0, 0, 0, 0xBB};
        std::vector<std::unique_ptr<Station>> stations;
        stations.push_back(std::make_unique<Station>(1, kRaw));
        stations.push_back(std::make_unique<Station>(2, kVersion2));
        stations.push_back(std::make_unique<Station>(3, kRaw, 0, other));
        stations.push_back(std::make_unique<Station>(4, kRaw, 1));
        return stations;
    }
};

// What an application that looks often gets to see of one stream.
class Watch {
public:
    using Milliseconds = std::chrono::duration<double, std::milli>;

    void look(const Station& station) {
        const uint32_t counter = station.counter();
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
Worst watch(const std::vector<std::unique_ptr<Station>>& stations) {
    std::vector<Watch> watches(stations.size());
    const auto end = steady_clock::now() + milliseconds(2000);
    while (steady_clock::now() < end) {
        for (size_t i = 0; i < stations.size(); ++i) {
            watches[i].look(*stations[i]);
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
    const auto stations = stations_of_all_kinds();
    for (const auto& station : stations) {
        station->app.start();
    }
    Worst best{0, 1e9};
    for (int attempt = 0; attempt < 15 && (best.share < 0.99 || best.age > 5); ++attempt) {
        const Worst now = watch(stations);
        best = {std::max(best.share, now.share), std::min(best.age, now.age)};
        RecordProperty("share", std::to_string(now.share));
        RecordProperty("age_ms", std::to_string(now.age));
    }
    EXPECT_GE(best.share, 0.99);
    EXPECT_LE(best.age, 5.0);
}
