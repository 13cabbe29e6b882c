// The end of a handle: in every state, beside readers of other handles, and over and over.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <optional>
#include <thread>

#include "tests/end_to_end/application.h"
#include "tests/support/allocations.h"

using namespace test;

namespace {

constexpr char kOutputs[] = "package_counter,actual_joint_positions,package_counter";
constexpr size_t kLastCounter = 52;

using OptionalController = std::optional<sim::Simulator>;

// A state of a handle, and how its end comes out.
struct State {
    const char* name;
    std::function<void(Application&, OptionalController&)> reach;
    Outcome destroyed{0, ""};
};

void PrintTo(const State& state, std::ostream* out) {
    *out << state.name;
}

void stream(Application& app, OptionalController&) {
    ASSERT_NO_FATAL_FAILURE(app.stream(kOutputs));
    ASSERT_TRUE(wait_until([&] { return app.latest().length() > 0; }));
}

const State kStates[] = {
    // Its sockets are still 0, so teardown closes descriptor 0, which works once.
    {"Registered",
     [](Application&, OptionalController&) {},
     {-1, "Failed to close receive interface\nFailed to close IO control interface\n"}},
    {"Connected",
     [](Application& app, OptionalController&) {
         ASSERT_EQ(vexo_create(app.handle, app.address.c_str(), nullptr, 2, nullptr), 0);
     }},
    {"Negotiated", [](Application& app, OptionalController&) { app.connect(); }},
    {"Loaded",
     [](Application& app, OptionalController&) {
         ASSERT_NO_FATAL_FAILURE(app.connect());
         ASSERT_NO_FATAL_FAILURE(app.load_catalogue());
     }},
    {"Streaming", stream},
    {"Paused",
     [](Application& app, OptionalController& controller) {
         ASSERT_NO_FATAL_FAILURE(stream(app, controller));
         ASSERT_EQ(vexo_output_pause(app.handle, 0), 0);
     }},
    {"PeerGone",
     [](Application& app, OptionalController& controller) {
         ASSERT_NO_FATAL_FAILURE(stream(app, controller));
         controller.reset();
     }},
    {"PeerReset",
     [](Application& app, OptionalController& controller) {
         ASSERT_NO_FATAL_FAILURE(stream(app, controller));
         for (const sim::Port port : {sim::Port::io, sim::Port::control, sim::Port::stream}) {
             controller->disconnect(port, sim::Break::reset);
         }
     }},
    {"PeerSilent",
     [](Application& app, OptionalController& controller) {
         ASSERT_NO_FATAL_FAILURE(stream(app, controller));
         controller->inject(sim::parse_fault("lost,times=always"));
         controller->inject(sim::parse_fault("package,lost,times=always"));
     }},
};

class Teardown : public ::testing::TestWithParam<State> {};

std::string state_name(const ::testing::TestParamInfo<State>& state) {
    return state.param.name;
}

// Reads packages of a handle until it is told to stop, and checks them.
class Reader {
public:
    explicit Reader(const Application& app) : thread_([this, &app] { run(app); }) {}
    ~Reader() {
        done_ = true;
        thread_.join();
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    // Waits until so many more packages have been read.
    bool reads_on(uint64_t count = 100) const {
        const uint64_t enough = reads_ + count;
        return wait_until([&] { return reads_ > enough; });
    }

private:
    void run(const Application& app) {
        while (!done_) {
            const Package package = app.latest();
            EXPECT_EQ(package.result, 0);
            EXPECT_EQ(package.value<uint32_t>(0), package.value<uint32_t>(kLastCounter));
            ++reads_;
        }
    }

    std::atomic<bool> done_ = false;
    std::atomic<uint64_t> reads_ = 0;
    std::thread thread_;
};

void put_something_at_descriptor_zero() {
    const int null = open("/dev/null", O_RDONLY);
    dup2(null, 0);
    if (null > 0) {
        close(null);
    }
}

int threads() {
    int count = 0;
    for ([[maybe_unused]] const auto& entry :
         std::filesystem::directory_iterator("/proc/self/task")) {
        ++count;
    }
    return count;
}

// What a process holds.
struct Holdings {
    std::ptrdiff_t descriptors = std::ssize(open_descriptors());
    int threads = ::threads();
    int64_t bytes = live_bytes();
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(State, Teardown, ::testing::ValuesIn(kStates), state_name);

TEST_P(Teardown, LeavesOtherHandlesWithTheirLatestPackage) {
    put_something_at_descriptor_zero();
    const sim::Simulator other_controller(on_loopback(1));
    OptionalController controller(on_loopback(2));
    Application other(own_loopback(1));
    Application app(own_loopback(2));
    ASSERT_NO_FATAL_FAILURE(other.stream(kOutputs));
    ASSERT_TRUE(wait_until([&] { return other.latest().length() > 0; }));
    const Reader reader(other);
    ASSERT_NO_FATAL_FAILURE(GetParam().reach(app, controller));
    ASSERT_TRUE(reader.reads_on());

    EXPECT_EQ(outcome_of([&] { return app.destroy(); }), GetParam().destroyed);
    EXPECT_EQ(check_Handle(app.handle), 0U);
    EXPECT_EQ(VexoHandleData_num, 1);
    EXPECT_TRUE(reader.reads_on());
    const auto last = other.latest().value<uint32_t>(0);
    EXPECT_TRUE(other_controller.wait_for_packages(other_controller.counters().packages_sent + 50));
    EXPECT_EQ(other.latest().value<uint32_t>(0), last) << "nobody receives any more";
    EXPECT_EQ(vexo_set_percentvelocity(other.handle, other.method("setPercentVelocity"), 50), 0);
}

TEST(TeardownRounds, LeaveNothingBehind) {
    sim::Options options = on_loopback();
    options.history = 0;
    const sim::Simulator controller(options);
    const auto round = [] {
        Application app;
        ASSERT_NO_FATAL_FAILURE(app.stream(kOutputs));
        ASSERT_EQ(app.servo(1), 0);
        ASSERT_EQ(app.destroy(), 0);
    };
    const Holdings at_start;
    const auto all_closed = [&] { return Holdings().descriptors == at_start.descriptors; };
    ASSERT_NO_FATAL_FAILURE(round());
    ASSERT_TRUE(wait_until(all_closed));
    const Holdings before;
    constexpr int kRounds = 300;
    for (int i = 0; i < kRounds; ++i) {
        ASSERT_NO_FATAL_FAILURE(round());
    }
    EXPECT_EQ(VexoHandleData_num, 0);
    EXPECT_TRUE(wait_until(all_closed));
    EXPECT_EQ(Holdings().threads, before.threads);
    EXPECT_LT(Holdings().bytes, before.bytes + kRounds * 256);
}

// The connections made before the one that fails stay open, and nothing else does.
TEST(TeardownRounds, OfFailedConnectionsKeepOnlyTheDescriptorsMade) {
    sim::Options options = on_loopback();
    options.refused_ports = {sim::Port::stream};
    options.history = 0;
    const sim::Simulator controller(options);
    constexpr int kRounds = 50;
    const Holdings before;
    for (int i = 1; i <= kRounds; ++i) {
        const Application app;
        ASSERT_EQ(vexo_create(app.handle, app.address.c_str(), nullptr, 2, nullptr), -1);
        ASSERT_EQ(VexoHandleData_num, 0);
        ASSERT_EQ(VexoHandlelist[0], static_cast<uint32_t>(i));
    }
    // Each has two ends in this process.
    EXPECT_TRUE(
        wait_until([&] { return Holdings().descriptors == before.descriptors + 2 * 2 * kRounds; }));
    EXPECT_EQ(Holdings().threads, before.threads);
    EXPECT_LT(Holdings().bytes, before.bytes + VEXO_DATASPACE_SIZE);
}
