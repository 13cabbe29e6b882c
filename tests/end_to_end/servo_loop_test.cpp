// The servo command in a control loop: beside other traffic, and with acknowledgements that come
// late or not at all.
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
void run_servo_loop(const Application& app) {
    auto next = std::chrono::steady_clock::now();
    for (int i = 0; i < kCycles; ++i) {
        const double joints[6] = {i * 1e-4, 0, 0, 0, 0, 0};
        ASSERT_EQ(cvexo_servoj(app.handle, app.servo_row, i, 0, nullptr, 6, joints), 0);
        std::this_thread::sleep_until(next += kPeriod);
    }
}

void expect_in_order(const sim::Simulator& controller, int64_t count) {
    ASSERT_TRUE(controller.wait_for_set_points(static_cast<uint64_t>(count)));
    const auto points = controller.set_points();
    ASSERT_EQ(points.size(), static_cast<size_t>(count));
    for (size_t i = 0; i < points.size(); ++i) {
        ASSERT_EQ(points[i].sequence, i + 1);
        ASSERT_EQ(points[i].value, static_cast<double>(i));
        ASSERT_EQ(points[i].joints.at(0), static_cast<double>(i) * 1e-4);
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

class ServoLoop : public ::testing::TestWithParam<int64_t> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(TimingVersion, ServoLoop, ::testing::Values(1, 2));

TEST_P(ServoLoop, DeliversEverySetPointBesideReadingAndWriting) {
    const sim::Simulator moved(on_loopback(1));
    const sim::Simulator watched(on_loopback(2));
    const sim::Simulator written(on_loopback(3));
    Application mover(own_loopback(1));
    Application watcher(own_loopback(2));
    Application writer(own_loopback(3));
    for (Application* app : {&mover, &watcher, &writer}) {
        ASSERT_NO_FATAL_FAILURE(app->connect(GetParam()));
        ASSERT_NO_FATAL_FAILURE(app->load_catalogue());
    }
    ASSERT_NO_FATAL_FAILURE(writer.set_up_input("heartbeat"));
    ASSERT_NO_FATAL_FAILURE(watcher.set_up_output("package_counter"));
    ASSERT_NO_FATAL_FAILURE(watcher.start());

    std::atomic<bool> done = false;
    uint32_t sent = 0;
    uint32_t seen = 0;
    std::thread reading = beside(done, [&] {
        const auto counter = watcher.latest().value<uint32_t>(0);
        ASSERT_GE(counter, seen);
        seen = counter;
    });
    std::thread writing = beside(done, [&] {
        const uint32_t beat = ++sent;
        ASSERT_EQ(vexo_input_data_send(writer.handle, writer.input_recipe, &beat), 0);
    });
    run_servo_loop(mover);
    done = true;
    reading.join();
    writing.join();
    expect_in_order(moved, kCycles);
    expect_counted(written, sent);
    EXPECT_GT(seen, kCycles / 2);
}

TEST(TimingLateAcknowledgement, IsNoErrorAndMeetsTheNextCall) {
    const Outcome timed_out{0, "cvexo_servoj recv error: -2\n"};
    sim::Simulator controller(on_loopback());
    Application app;
    ASSERT_NO_FATAL_FAILURE(app.connect());
    ASSERT_NO_FATAL_FAILURE(app.load_catalogue());
    ASSERT_EQ(app.servo(0), 0);
    log_init();
    controller.inject(sim::parse_fault("lost"));
    EXPECT_EQ(outcome_of([&] { return app.servo(1); }), timed_out);
    ASSERT_TRUE(app.wait_settled(kControlSocketOffset, 0));
    controller.inject(sim::parse_fault("status=9,delay=100"));
    EXPECT_EQ(outcome_of([&] { return app.servo(2); }), timed_out);
    ASSERT_TRUE(app.wait_settled(kControlSocketOffset, 7));
    EXPECT_EQ(outcome_of([&] { return app.servo(3); }), (Outcome{9, "cvexo_servoj Error: 9\n"}));
    EXPECT_EQ(app.member(kServoCounterOffset), 4U) << "a late one has used its number";
    EXPECT_EQ(Session::finished_log(app.address).find("recv error"), std::string::npos);
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
    EXPECT_EQ(vexo_set_percentvelocity(app.handle, app.method("setPercentVelocity"), 50), 0)
        << "the other connection is whole";
    EXPECT_THAT(Session::finished_log(app.address),
                ::testing::HasSubstr("cvexo_servoj send error: -1\n"));
}
