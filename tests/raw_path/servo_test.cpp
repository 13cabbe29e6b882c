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
    robot_->send(controller_frame(kReply, {1}));
    EXPECT_EQ(session_->servo(), 0);
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

TEST_F(RawServo, SendsTheVectorOnlyWithTheFlag) {
    connect(1);
    const double vector[6] = {1, 1, 1, 1, 1, 1};
    const double value = -2;
    const Bytes head = bytes("6D 01 02");
    const Bytes leading = bytes("0B 00 00 00 00 00 00 E0 3F 04");
    Bytes ones;
    for (int i = 0; i < 6; ++i) {
        ones = ones + bytes("00 00 00 00 00 00 F0 3F");
    }
    const Bytes array = bytes("13 01 01 0B 00 00 00 00 00 00 00 C0");
    EXPECT_EQ(cvexo_servoj(session_->handle, 1, 0.5, 0, vector, 1, &value), 0);
    EXPECT_EQ(robot_->receive(), client_frame(146, 0,
                                              bytes("22 00") + head + bytes("05") + leading +
                                                  bytes("01 00 00 00 02 00") + array));
    EXPECT_EQ(cvexo_servoj(session_->handle, 1, 0.5, 3, vector, 1, &value), 0);
    EXPECT_EQ(robot_->receive(), client_frame(146, 1,
                                              bytes("53 00") + head + bytes("06") + leading +
                                                  bytes("02 00 00 00 02 03 0D") + ones + array));
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

TEST_F(RawServo, ReportsAnEndpointThatIsGone) {
    connect(1);
    end_receive_thread();
    socket_raw_free(0);
    OutputCapture output;
    EXPECT_EQ(session_->servo(), 302);
    const uint8_t nothing = 0;
    EXPECT_EQ(vexo_input_data_send(session_->handle, 1, &nothing), 302);
    EXPECT_EQ(output.text(),
              "cvexo_servoj socket_raw_applysendbuf error -100\n"
              "vexo_input_data_send socket_raw_applysendbuf error -100\n");
    EXPECT_EQ(session_->member(kServoCounterOffset), 0U);
    EXPECT_EQ(pthread_mutex_trylock(&base_servoj_mutex), 0);
    EXPECT_EQ(pthread_mutex_trylock(&base_datasend_mutex), 0);
}
