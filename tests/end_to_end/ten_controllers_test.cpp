// Without this ten controllers that stream as fast as they can could be too many.
#include <algorithm>
#include <array>
#include <memory>
#include <thread>

#include "client/registry.h"
#include "tests/end_to_end/application.h"

using namespace test;

namespace {

constexpr int kControllers = 10;
constexpr uint32_t kPackages = 3000;

// A package begins and ends with the same counter, and is nearly as long as one can be.
std::string wide_recipe() {
    std::string names = "package_counter";
    for (int i = 0; i < 25; ++i) {
        names += ",actual_joint_positions";
    }
    return names + ",package_counter";
}
constexpr size_t kLastCounter = 4 + 25 * 48;

// What a reader saw of one controller's packages. It need not see all: the library keeps the
// latest.
struct Watch {
    uint32_t latest = 0;
    uint32_t torn = 0;
    uint32_t backward = 0;

    void look(const Application& app) {
        const Package package = app.latest();
        const auto counter = package.value<uint32_t>(0);
        torn += counter != package.value<uint32_t>(kLastCounter) ? 1 : 0;
        backward += counter < latest ? 1 : 0;
        latest = counter;
    }
};

// How often the receive thread has made another package the latest: the store's count moves by two.
uint32_t times_shown(const Application& app) {
    return vexo::find_live_state(app.handle)->store_sequence.load() / 2;
}

}  // namespace

TEST(TimingTenControllers, AllShowTheirPackagesInOrder) {
    std::vector<std::unique_ptr<Station>> stations;
    for (int i = 1; i <= kControllers; ++i) {
        stations.push_back(std::make_unique<Station>(i, kVersion2, 0, std::nullopt, wide_recipe()));
    }
    for (const auto& station : stations) {
        ASSERT_NO_FATAL_FAILURE(station->app.start());
    }
    std::array<Watch, kControllers> watches;
    const auto all_done = [&] {
        for (size_t i = 0; i < watches.size(); ++i) {
            watches[i].look(stations[i]->app);
        }
        return std::all_of(watches.begin(), watches.end(),
                           [](const Watch& watch) { return watch.latest >= kPackages; });
    };
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!all_done() && std::chrono::steady_clock::now() < limit) {
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
    for (size_t i = 0; i < watches.size(); ++i) {
        EXPECT_EQ(watches[i].torn, 0U) << i;
        EXPECT_EQ(watches[i].backward, 0U) << i;
        EXPECT_EQ(stations[i]->controller.counters().packages_dropped, 0U) << i;
        EXPECT_GE(watches[i].latest, kPackages) << i;
        EXPECT_GE(times_shown(stations[i]->app), watches[i].latest - watches[i].latest / 100) << i;
    }
}
