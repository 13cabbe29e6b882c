// Without this set-points or inputs could get lost or mixed beside other traffic, or the loss of a
// link go unnoticed.
#include <atomic>
#include <chrono>
#include <thread>

#include "tests/end_to_end/application.h"

using namespace test;
using namespace std::chrono_literals;

namespace {

constexpr int kCycles = 3000;
constexpr auto kPeriod = 1ms;

// Runs `cycle` until `done`, some thousand times a second.
template <typename Cycle>
std::thread beside(const std::atomic<bool>& done, Cycle cycle) {
    return std::thread([&done, cycle] {
        while (!done) {
            cycle();
            std::this_thread::sleep_for(200us);
        }
    });
}

// Sends set-points 0, 1, 2, ... at fixed times.
void run_servo_loop(const Station& station) {
    auto next = std::chrono::steady_clock::now();
    for (int i = 0; i < kCycles; ++i) {
        const double joints[6] = {i * 1e-4, 0, 0, 0, 0, 0};
        ASSERT_EQ(station.app.servo(i, {std::begin(joints), std::end(joints)}), 0);
        if (i % 50 == 0) {  // a controller that is held up may lose frames
            ASSERT_TRUE(station.controller.wait_for_set_points(static_cast<uint64_t>(i)));
        }
        std::this_thread::sleep_until(next += kPeriod);
    }
}

void expect_in_order(const sim::Simulator& controller, int64_t count, sim::Port port) {
    ASSERT_TRUE(controller.wait_for_set_points(static_cast<uint64_t>(count)));
    const auto points = controller.set_points();
    ASSERT_EQ(points.size(), static_cast<size_t>(count));
    for (size_t i = 0; i < points.size(); ++i) {
        ASSERT_EQ(points[i].sequence, i + 1);
        ASSERT_EQ(points[i].value, static_cast<double>(i));
        ASSERT_EQ(points[i].joints,
                  (std::vector<double>{static_cast<double>(i) * 1e-4, 0, 0, 0, 0, 0}));
        ASSERT_EQ(points[i].port, port);
    }
}

// The number that each input package holds, in the order of arrival.
void expect_counted(const sim::Simulator& controller, uint32_t count) {
    ASSERT_TRUE(controller.wait_for_inputs(count));
    const auto inputs = controller.inputs();
    ASSERT_EQ(inputs.size(), count);
    for (uint32_t i = 0; i < count; ++i) {
        ASSERT_EQ(read_u32(inputs[i].values.data()), i + 1);
    }
}

class ServoLoop : public ::testing::TestWithParam<Path> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Timing, ServoLoop, ::testing::Values(kVersion1, kVersion2, kRaw, kRawNack),
                         path_name);

TEST_P(ServoLoop, DeliversEverySetPointBesideReadingAndWriting) {
    if (GetParam().raw()) {
        if (const std::string reason = enter_own_network(3); !reason.empty()) {
            GTEST_SKIP() << reason;
        }
    }
    const Station moved(1, GetParam(), 0);
    const Station watched(2, GetParam(), 1);
    const Station written(3, GetParam(), 2);
    for (const Station* station : {&moved, &watched}) {  // acknowledgements come as packages do
        ASSERT_NO_FATAL_FAILURE(station->app.start());
    }

    std::atomic<bool> done = false;
    uint32_t sent = 0;
    uint32_t seen = 0;
    std::thread reading = beside(done, [&] {
        const uint32_t counter = watched.counter();
        ASSERT_GE(counter, seen);
        seen = counter;
    });
    std::thread writing = beside(done, [&] {
        const uint32_t beat = ++sent;
        ASSERT_EQ(vexo_input_data_send(written.app.handle, written.app.input_recipe, &beat), 0);
        if (beat % 50 == 0) {
            ASSERT_TRUE(written.controller.wait_for_inputs(beat));
        }
    });
    run_servo_loop(moved);
    done = true;
    reading.join();
    writing.join();
    expect_in_order(moved.controller, kCycles,
                    GetParam().raw() ? sim::Port::raw : sim::Port::control);
    expect_counted(written.controller, sent);
    EXPECT_EQ(moved.controller.counters().frames_rejected, 0U);
    EXPECT_GT(seen, kCycles / 2);
}

TEST(ServoLink, LossIsReportedByTheCallsThatMeetIt) {
    sim::Simulator controller(on_loopback());
    Application app;
    ASSERT_NO_FATAL_FAILURE(app.connect());
    ASSERT_NO_FATAL_FAILURE(app.load_catalogue());
    controller.inject(sim::parse_fault("method=servoJ,reset,after=0"));
    log_init();
    EXPECT_EQ(outcome_of([&] { return app.servo(0); }),
              (Outcome{0,
                       "Receive failed - Connection reset by peer (errno: 104)\n"
                       "cvexo_servoj recv error: -1\n"}))
        << "sent, so no error";
    const Outcome second = outcome_of([&] { return app.servo(1); });
    EXPECT_EQ(second.result, VEXO_ERROR_TRANSPORT);
    EXPECT_THAT(second.printed, ::testing::StartsWith("Send failed - Broken pipe (errno: 32)\n"));
    EXPECT_THAT(second.printed, ::testing::EndsWith("cvexo_servoj send error: -1\n"));
    EXPECT_EQ(app.member(kServoCounterOffset), 2U) << "the number is used all the same";
    EXPECT_EQ(vexo_set_percentvelocity(app.handle, app.method("setPercentVelocity"), 50), 0)
        << "the other connection is whole";
    EXPECT_THAT(Session::finished_log(app.address),
                ::testing::HasSubstr("cvexo_servoj send error: -1\n"));
}
