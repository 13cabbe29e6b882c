// Without this the end of a handle could hang, disturb other handles or leave something behind.
#include <atomic>
#include <optional>
#include <span>
#include <thread>
#include <tuple>

#include "net/raw_socket.h"
#include "tests/end_to_end/application.h"
#include "tests/support/allocations.h"
#include "tests/support/network_namespace.h"

using namespace test;

namespace {

constexpr char kOutputs[] = "package_counter,actual_joint_positions,package_counter";
constexpr size_t kLastCounter = 52;

using OptionalController = std::optional<sim::Simulator>;

// The end of a cable, or of a loopback address, where a controller is.
sim::Options controller_options(const Path& path, int number) {
    sim::Options options = on_loopback(number);
    options.history = 0;
    if (path.raw()) {
        options.interface = "robot" + std::to_string(number - 1);
    }
    return options;
}

std::string enter_network_of(const Path& path) {
    return path.raw() ? enter_own_network(2) : "";
}

// A state of a handle, and how its end comes out.
struct State {
    const char* name;
    void (*reach)(Application&, OptionalController&, int64_t mode);
    Outcome destroyed{0, ""};
};

void PrintTo(const State& state, std::ostream* out) {
    *out << state.name;
}

void connect(Application& app, OptionalController&, int64_t mode) {
    ASSERT_EQ(vexo_create(app.handle, app.address.c_str(), app.interface.c_str(), mode, nullptr),
              0);
}

// The receive thread ends when it meets the handle that is gone.
void connect_by_half(Application& app, OptionalController& controller, int64_t mode) {
    controller.reset();
    sim::Options options = on_loopback(2);
    options.refused_ports = {sim::Port::control};
    controller.emplace(options);
    OutputCapture output;
    ASSERT_EQ(vexo_create(app.handle, app.address.c_str(), app.interface.c_str(), mode, nullptr),
              -1);
    EXPECT_TRUE(
        wait_until([&] { return output.text().find("Handle not found") != std::string::npos; }));
}

void negotiate(Application& app, OptionalController&, int64_t mode) {
    app.connect(mode);
}

void load(Application& app, OptionalController&, int64_t mode) {
    ASSERT_NO_FATAL_FAILURE(app.connect(mode));
    ASSERT_NO_FATAL_FAILURE(app.load_catalogue());
}

void stream(Application& app, OptionalController& controller, int64_t mode) {
    ASSERT_NO_FATAL_FAILURE(app.stream(kOutputs, mode));
    EXPECT_TRUE(controller->wait_for_packages(controller->counters().packages_sent + 2));
    if (VexoHandleData_num > 1) {  // alone, from the second round on nobody receives
        EXPECT_TRUE(wait_until([&] { return app.latest().length() > 0; }));
    }
}

void pause(Application& app, OptionalController& controller, int64_t mode) {
    ASSERT_NO_FATAL_FAILURE(stream(app, controller, mode));
    ASSERT_EQ(vexo_output_pause(app.handle, 0), 0);
}

void lose_peer(Application& app, OptionalController& controller, int64_t mode) {
    ASSERT_NO_FATAL_FAILURE(stream(app, controller, mode));
    controller.reset();
}

void reset_by_peer(Application& app, OptionalController& controller, int64_t mode) {
    ASSERT_NO_FATAL_FAILURE(stream(app, controller, mode));
    for (const sim::Port port : {sim::Port::io, sim::Port::control, sim::Port::stream}) {
        controller->disconnect(port, sim::Break::reset);
    }
}

void silence_peer(Application& app, OptionalController& controller, int64_t mode) {
    ASSERT_NO_FATAL_FAILURE(stream(app, controller, mode));
    controller->inject(sim::parse_fault("lost,times=always"));
    controller->inject(sim::parse_fault("package,lost,times=always"));
}

void cut_link(Application& app, OptionalController& controller, int64_t mode) {
    ASSERT_NO_FATAL_FAILURE(stream(app, controller, mode));
    run_ip("link set " + app.interface + " down");
}

const State kStates[] = {
    // Its sockets are still 0, so teardown closes descriptor 0, which works once.
    {"Registered",
     [](Application&, OptionalController&, int64_t) {},
     {-1, "Failed to close receive interface\nFailed to close IO control interface\n"}},
    {"Connected", connect},
    {"Negotiated", negotiate},
    {"Loaded", load},
    {"Streaming", stream},
    {"Paused", pause},
    {"PeerReset", reset_by_peer},
    {"PeerSilent", silence_peer},
    {"PeerGone", lose_peer},
    {"ConnectedByHalf", connect_by_half, {-1, ""}},
};
const auto kToBeRepeated = std::span(kStates).first(std::size(kStates) - 1);
const State kLinkDown{"LinkDown", cut_link};

using PathAndState = std::tuple<Path, State>;

class Teardown : public ::testing::TestWithParam<PathAndState> {};

std::string state_name(const ::testing::TestParamInfo<PathAndState>& both) {
    return std::string(std::get<Path>(both.param).name) + std::get<State>(both.param).name;
}

class TeardownRounds : public ::testing::TestWithParam<Path> {};

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

// What a process holds.
struct Holdings {
    std::ptrdiff_t descriptors = std::ssize(open_descriptors());
    std::ptrdiff_t threads = thread_count();
    int64_t bytes = live_bytes();
};

// One life of a handle. Those that lose the controller leave none behind.
void live_once(const Path& path, const State& state, OptionalController& controller) {
    put_something_at_descriptor_zero();
    if (!controller) {
        controller.emplace(controller_options(path, 1));
    }
    controller->clear_faults();
    const uint64_t connections = controller->counters().connections;
    Application app;
    ASSERT_NO_FATAL_FAILURE(state.reach(app, controller, path.mode));
    if (controller && app.socket(kIoSocketOffset) != 0) {
        // The controller must not accept one on descriptor 0 while that is closed.
        const uint64_t ports = path.raw() ? 2 : 3;
        ASSERT_TRUE(
            wait_until([&] { return controller->counters().connections == connections + ports; }));
    }
    const int endpoint = app.socket(kRawSocketOffset);
    ASSERT_EQ(outcome_of([&] { return app.destroy(); }), state.destroyed);
    socket_raw_free(endpoint);  // teardown leaves it to the application
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(State, Teardown,
                         ::testing::Combine(::testing::Values(kVersion2, kRaw),
                                            ::testing::ValuesIn(kStates)),
                         state_name);
INSTANTIATE_TEST_SUITE_P(Link, Teardown,
                         ::testing::Combine(::testing::Values(kRaw), ::testing::Values(kLinkDown)),
                         state_name);

TEST_P(Teardown, LeavesOtherHandlesWithTheirLatestPackage) {
    const auto& [path, state] = GetParam();
    if (const std::string reason = enter_network_of(path); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    put_something_at_descriptor_zero();
    const sim::Simulator other_controller(controller_options(path, 1));
    OptionalController controller(controller_options(path, 2));
    Application other(own_loopback(1));
    Application app(own_loopback(2));
    app.interface = "host1";
    ASSERT_NO_FATAL_FAILURE(other.stream(kOutputs, path.mode));
    ASSERT_TRUE(wait_until([&] { return other.latest().length() > 0; }));
    const Reader reader(other);
    ASSERT_NO_FATAL_FAILURE(state.reach(app, controller, path.mode));
    ASSERT_TRUE(reader.reads_on());

    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(outcome_of([&] { return app.destroy(); }), state.destroyed);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_EQ(check_Handle(app.handle), 0U);
    EXPECT_EQ(VexoHandleData_num, 1);
    EXPECT_TRUE(reader.reads_on());
    const auto last = other.latest().value<uint32_t>(0);
    EXPECT_TRUE(other_controller.wait_for_packages(other_controller.counters().packages_sent + 50));
    EXPECT_EQ(other.latest().value<uint32_t>(0), last) << "nobody receives any more";
    EXPECT_EQ(vexo_set_percentvelocity(other.handle, other.method("setPercentVelocity"), 50), 0);
}

INSTANTIATE_TEST_SUITE_P(Path, TeardownRounds, ::testing::Values(kVersion2, kRaw), path_name);

TEST_P(TeardownRounds, LeaveNothingBehind) {
    if (const std::string reason = enter_network_of(GetParam()); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    OptionalController controller;
    const auto each_state_once = [&] {
        for (const State& state : kToBeRepeated) {
            ASSERT_NO_FATAL_FAILURE(live_once(GetParam(), state, controller));
        }
    };
    ASSERT_NO_FATAL_FAILURE(each_state_once());
    const Holdings before;
    const size_t rounds = GetParam().raw() ? 500 : 1500;  // an endpoint takes the system 20 ms
    for (size_t i = 0; i < rounds; i += kToBeRepeated.size()) {
        ASSERT_NO_FATAL_FAILURE(each_state_once());
    }
    EXPECT_EQ(VexoHandleData_num, 0);
    const Holdings after;
    EXPECT_EQ(after.descriptors, before.descriptors);
    EXPECT_EQ(after.threads, before.threads);
    EXPECT_LT(after.bytes, before.bytes + static_cast<int64_t>(rounds));
}

// Each round is a life with threads inside its calls at its end, and a receive thread of its own.
TEST_P(TeardownRounds, MayBeFollowedByAnotherStream) {
    if (const std::string reason = enter_network_of(GetParam()); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    OptionalController controller(controller_options(GetParam(), 1));
    OutputCapture output;
    for (int round = 0; round < 20; ++round) {
        put_something_at_descriptor_zero();
        Application app;
        ASSERT_NO_FATAL_FAILURE(app.stream(kOutputs, GetParam().mode));
        ASSERT_TRUE(wait_until([&] { return app.latest().length() > 0; })) << "round " << round;
        const auto until_it_ends = [](auto call) {
            int32_t result = 0;
            while (result == 0) {
                result = call();
            }
            EXPECT_TRUE(result == -1 || result == 301 || result == 302) << result;
        };
        std::thread reading([&] { until_it_ends([&] { return app.latest().result; }); });
        std::thread moving([&] { until_it_ends([&] { return app.servo(0); }); });
        std::thread finding([&] {
            until_it_ends([&] { return std::min(find_input_index(app.handle, "heartbeat"), 0); });
        });
        std::this_thread::sleep_for(std::chrono::microseconds(100 * round));
        const int endpoint = app.socket(kRawSocketOffset);
        EXPECT_EQ(vexo_destroy(app.handle), 0);
        reading.join();
        moving.join();
        finding.join();
        pthread_join(th_receive, nullptr);
        socket_raw_free(endpoint);
        recv_thread_init_ok = 0;
    }
}
