// The C++ header on top of the C interface.
#include "session/session.hpp"

#include <gmock/gmock.h>

#include "sim/simulator.h"
#include "tests/support/process.h"

namespace test {
namespace {

using namespace std::chrono_literals;

TEST(SessionInCpp, StreamsWritesAndCalls) {
    sim::Options options;
    options.address = own_loopback();
    sim::Simulator controller(std::move(options));
    auto robot = vexo::Session::open(own_loopback().c_str());
    ASSERT_TRUE(robot);
    auto stream = robot->stream({"package_counter", "controller_time"}, 20s);
    ASSERT_TRUE(stream) << vexo::Error().cause;
    auto counter = stream->field("package_counter");
    auto cursor = stream->cursor();
    ASSERT_TRUE(counter && cursor);

    vexo::Batch batch(*stream, 16);
    int64_t last = 0;
    while (last < 100) {
        ASSERT_TRUE(cursor->wait(20s));
        ASSERT_TRUE(cursor->read(batch));
        for (const vexo::Record record : batch) {
            EXPECT_GT(record.i64(*counter), last);
            last = record.i64(*counter);
        }
    }
    auto inputs = robot->inputs({"conveyor_speed"}, 20s);
    ASSERT_TRUE(inputs);
    EXPECT_TRUE(inputs->set("conveyor_speed", 0.5));
    EXPECT_TRUE(inputs->send());
    EXPECT_TRUE(controller.wait_for_inputs(1));
    EXPECT_TRUE(robot->call("setStandardDigitalOut",
                            {vexo::Argument::u8(3), vexo::Argument::boolean(true)}, 20s));
    EXPECT_EQ(controller.digital_outputs(), 8U);
    EXPECT_EQ(robot->stream({"nothing"}, 20s).code(), VEXO_SESSION_UNKNOWN_NAME);
    EXPECT_TRUE(robot->close());
    EXPECT_EQ(cursor->wait(20s).code(), VEXO_SESSION_CLOSED);
}

TEST(SessionInCpp, FeedsSetPointsAtASteadyPace) {
    sim::Options options;
    options.address = own_loopback();
    sim::Simulator controller(std::move(options));
    auto robot = vexo::Session::open(own_loopback().c_str());
    ASSERT_TRUE(robot && robot->wait_ready(20s));
    auto given = vexo::sized<VexoSessionFeedOptions>();
    given.joints = 6;
    given.capacity = 32;
    auto feed = robot->feed(given);
    ASSERT_TRUE(feed);
    EXPECT_EQ(robot->servo(std::vector<double>(6), 1s).code(), VEXO_SESSION_BUSY);
    const std::vector<double> points(6 * 100, 0.25);
    EXPECT_TRUE(feed->push(points, 6, 20s));
    EXPECT_TRUE(feed->drain(20s));
    ASSERT_TRUE(controller.wait_for_set_points(100));
    EXPECT_EQ(controller.set_points().back().joints, std::vector<double>(6, 0.25));
    EXPECT_EQ(feed->status().sent, 100U);
    // What waits when the session is cut is never sent.
    controller.disconnect(sim::Port::io);
    while (feed->push(points, 6, 20s)) {
    }
    EXPECT_EQ(vexo::Error().code, VEXO_SESSION_CUT);
    EXPECT_EQ(feed->drain(20s).code(), VEXO_SESSION_CUT);
}

}  // namespace
}  // namespace test
