// Without this set-points in frames could wait for the wrong acknowledgement, or for none.
#include <sys/socket.h>
#include <unistd.h>

#include <future>

#include "tests/raw_path/raw_path.h"
#include "tests/support/network_namespace.h"
#include "tests/support/sanitizers.h"

using namespace test;
using std::chrono::milliseconds;
using ::testing::HasSubstr;

namespace {

constexpr uint8_t kReply = 146;

class RawServo : public RawPath {
protected:
    void connect(uint32_t nack) {
        log_init();
        session_ = std::make_unique<RawSession>();
        session_->negotiate_raw(nack);
        session_->start();
    }

    void acknowledge(uint8_t status) {
        robot_->send(controller_frame(kReply, {7, 0, 'm', status, 0, 0, 0}));
    }
    // Sends a set-point that waits for an acknowledgement.
    std::future<int32_t> servo_waiting() {
        auto result = std::async(std::launch::async, [&] { return session_->servo(); });
        EXPECT_FALSE(robot_->receive().empty()) << "it is sent before the wait";
        EXPECT_EQ(result.wait_for(milliseconds(50)), std::future_status::timeout);
        return result;
    }
    // Has the receive thread pass over a frame, and so over all before it.
    void settle() {
        const Bytes latest = package({++mark_});
        robot_->send(controller_frame(144, latest));
        EXPECT_TRUE(session_->shows(latest));
    }

    std::unique_ptr<RawSession> session_;

private:
    uint8_t mark_ = 0;
};

}  // namespace

TEST_F(RawServo, ReturnsTheAcknowledgementOfTheSetPointBefore) {
    connect(0);
    EXPECT_EQ(session_->servo(), 0) << "the first one waits for none";
    OutputCapture output;
    acknowledge(7);
    EXPECT_EQ(session_->servo(), 7);
    EXPECT_EQ(output.text(), "cvexo_servoj Error: 7\n");
    auto third = std::async(std::launch::async, [&] { return session_->servo(); });
    EXPECT_EQ(third.wait_for(milliseconds(100)), std::future_status::timeout);
    for (int i = 0; i < 3; ++i) {
        robot_->receive();  // each is sent before the wait
    }
    settle();
    EXPECT_EQ(third.wait_for(milliseconds(0)), std::future_status::timeout);
    acknowledge(0);
    EXPECT_EQ(third.get(), 0);
    EXPECT_THAT(session_->log(), HasSubstr(" cvexo_servoj Error: 7\n"));
}

TEST_F(RawServo, TakesAnEmptyReplyForAnAcknowledgement) {
    connect(0);
    EXPECT_EQ(session_->servo(), 0);
    robot_->send(controller_frame(kReply, {}));
    EXPECT_EQ(session_->servo(), 0);
    acknowledge(7);
    EXPECT_EQ(session_->servo(), 7);
    robot_->send(controller_frame(kReply, {7}));
    EXPECT_EQ(session_->servo(), 0) << "a status that did not come counts as zero";
}

TEST_F(RawServo, ReportsALinkThatIsDown) {
    connect(1);
    run_ip("link set host0 down");
    OutputCapture output;
    EXPECT_EQ(session_->servo(), 302);
    const uint8_t nothing = 0;
    EXPECT_EQ(vexo_input_data_send(session_->handle, 1, &nothing), 302);
    EXPECT_EQ(output.text(), "cvexo_servoj send error: -1\nvexo_input_data_send send error\n");
    EXPECT_EQ(session_->member(kServoCounterOffset), 1U);
    run_ip("link set host0 up");
    EXPECT_TRUE(wait_until([&] { return link_runs("host0") && session_->servo() == 0; }));
    settle();
    const std::string log = session_->log();
    EXPECT_THAT(log, HasSubstr(" cvexo_servoj send error: -1\n"));
    EXPECT_THAT(log, HasSubstr(" vexo_input_data_send send error\n"));
}

TEST_F(RawServo, BegunBeforeTheStreamGoesOnWithIt) {
    session_ = std::make_unique<RawSession>();
    session_->negotiate_raw(0);
    auto first = servo_waiting();
    session_->start();
    acknowledge(0);
    EXPECT_EQ(first.get(), 0);
    acknowledge(0);
    EXPECT_EQ(session_->servo(), 0);
}

TEST_F(RawServo, EndsWithItsHandleWhichTouchesNobodysDescriptorZero) {
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    ASSERT_EQ(dup2(pair[0], 0), 0);
    connect(0);
    EXPECT_EQ(session_->servo(), 0);
    robot_->receive();
    auto waiting = servo_waiting();
    OutputCapture output;
    EXPECT_EQ(vexo_destroy(session_->handle), 0);
    EXPECT_EQ(waiting.get(), VEXO_ERROR_TRANSPORT);
    EXPECT_EQ(output.text(), "cvexo_servoj recv error: -1\n");
    EXPECT_EQ(session_->servo(), -1);
    EXPECT_EQ(send(pair[0], "x", 1, MSG_NOSIGNAL), 1) << "closed, as stated, but not shut down";
    char byte = 0;
    EXPECT_EQ(recv(pair[1], &byte, 1, MSG_DONTWAIT), 1);
}

TEST_F(RawServo, LeavesNothingLockedWhenItsThreadIsCancelled) {
    if (kCancelledFramesStay || kCancelledUnlocksAreMissed) {
        GTEST_SKIP() << "the sanitizer cannot follow a cancelled thread";
    }
    connect(0);
    EXPECT_EQ(session_->servo(), 0);
    robot_->receive();
    pthread_t thread;
    const auto set_point = [](void* session) -> void* {
        static_cast<RawSession*>(session)->servo();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, nullptr, set_point, session_.get()), 0);
    robot_->receive();
    pthread_cancel(thread);
    void* ended = nullptr;
    ASSERT_EQ(pthread_join(thread, &ended), 0);
    EXPECT_EQ(ended, PTHREAD_CANCELED);
    acknowledge(0);
    EXPECT_EQ(session_->servo(), 0);
    EXPECT_EQ(vexo_destroy(session_->handle), 0);
}
