// Set-points in frames and their acknowledgements.
#include <future>

#include "tests/raw_path/raw_path.h"
#include "tests/support/network_namespace.h"

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

TEST_F(RawServo, NeitherWaitsForNorMindsAcknowledgementsInNackMode) {
    connect(1);
    OutputCapture output;
    for (int i = 0; i < 5; ++i) {
        acknowledge(9);
    }
    settle();
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(session_->servo(), 0);
    }
    EXPECT_EQ(output.text(), "");
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
