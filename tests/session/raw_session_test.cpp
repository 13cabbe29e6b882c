// A session over raw Ethernet, from end to end.
#include "tests/session/session_fixture.h"

namespace test {
namespace {

class RawSession : public SessionFixture {
protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(prepare({"Raw", true}));
        if (raw_) {
            start_controller();
            open();
        }
    }
};

TEST_F(RawSession, StreamsAndServos) {
    VexoSessionStream* opened = stream({"package_counter"});
    ASSERT_NE(opened, nullptr);
    VexoSessionCursor* cursor = nullptr;
    ASSERT_OK(vexo_session_cursor_open(opened, nullptr, &cursor));
    const double joints[6] = {};
    auto point = sized<VexoSessionSetPoint>();
    point.count = 6;
    point.joints = joints;
    for (int i = 0; i < 100; ++i) {
        ASSERT_OK(vexo_session_servo(session_, &point, kSoon));
    }
    Records records(opened);
    for (uint64_t number = 0; number < 300;) {
        ASSERT_OK(vexo_session_cursor_wait(cursor, kSoon));
        number += records.read(cursor, 32);
    }
    EXPECT_EQ(controller_->set_points().back().port, sim::Port::raw);
    EXPECT_EQ(statistics().lost, controller_->counters().packages_dropped);
    EXPECT_EQ(status().mode, 3U);
}

TEST_F(RawSession, CountsLostFrames) {
    VexoSessionStream* opened = stream({"package_counter"});
    ASSERT_NE(opened, nullptr);
    VexoSessionCursor* cursor = nullptr;
    ASSERT_OK(vexo_session_cursor_open(opened, nullptr, &cursor));
    ASSERT_OK(vexo_session_cursor_wait(cursor, kSoon));  // before the first none is missing
    controller_->inject(sim::parse_fault("package,lost,times=3"));
    EXPECT_EQ(event(VEXO_SESSION_EVENT_LOST).count, 3U);
    EXPECT_EQ(statistics().lost, 3U);
}

}  // namespace
}  // namespace test
