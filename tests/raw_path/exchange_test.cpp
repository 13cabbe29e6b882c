// Without this frames that are not as they should be could be shown, or cost more than themselves.
#include <thread>

#include "tests/raw_path/raw_path.h"

using namespace test;
using ::testing::HasSubstr;

namespace {

constexpr uint8_t kOutput = 144;
constexpr uint8_t kReply = 146;

class RawExchange : public RawPath {
protected:
    void SetUp() override {
        RawPath::SetUp();
        if (!IsSkipped()) {
            log_init();
            session_ = std::make_unique<RawSession>();
            session_->negotiate_raw(1);
        }
    }

    void send_output(const Bytes& payload) { robot_->send(controller_frame(kOutput, payload)); }

    // Waits until all frames sent so far are worked off: the last of them is a reply, which leaves
    // the output store alone.
    void settle() {
        const Bytes reply{8, 0, 'm', 0, 0, 0, 0, ++mark_};
        robot_->send(controller_frame(kReply, reply));
        EXPECT_TRUE(
            wait_until([&] { return session_->bytes_at(kResponseOffset, reply.size()) == reply; }));
    }

    std::unique_ptr<RawSession> session_;

private:
    uint8_t mark_ = 0;
};

int count(const std::string& text, const std::string& part) {
    int found = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) {
        ++found;
    }
    return found;
}

}  // namespace

TEST_F(RawExchange, InputsAndSetPointsShareTheSequenceOfFrames) {
    write_u32(session_->dataspace() + kInputLengthOffset, 3);
    const Bytes values = bytes("11 22 33");
    EXPECT_EQ(vexo_input_data_send(session_->handle, 3, values.data()), 0);
    EXPECT_EQ(hex(robot_->receive()),
              "02 00 00 00 00 0B 02 00 00 00 00 0A C8 15 A6 91 E9 90 C8 B7 00 00 07 00 00 00 "
              "07 00 55 03 11 22 33 ");
    EXPECT_EQ(session_->servo(), 0);
    EXPECT_EQ(hex(robot_->receive()),
              "02 00 00 00 00 0B 02 00 00 00 00 0A C8 15 A6 92 78 BE C8 B7 01 00 2A 00 00 00 "
              "2A 00 6D 01 02 05 0B 00 00 00 00 00 00 E0 3F 04 01 00 00 00 02 00 13 01 02 0B "
              "00 00 00 00 00 00 F0 3F 00 00 00 00 00 00 00 C0 ");
    for (uint8_t sequence = 2; sequence < 5; ++sequence) {
        EXPECT_EQ(vexo_input_data_send(session_->handle, 3, values.data()), 0);
        EXPECT_EQ(robot_->receive(), client_frame(145, sequence, bytes("07 00 55 03 11 22 33")));
    }
}

TEST_F(RawExchange, StartsOneThreadForHandlesThatStartAtOnce) {
    RawSession other(2);
    other.negotiate_raw(1);
    const auto before = thread_count();
    std::thread beside([&] { other.start(); });
    session_->start();
    beside.join();
    EXPECT_EQ(thread_count(), before + 1);
    send_output(package({1}));
    EXPECT_TRUE(session_->shows(package({1})));
    EXPECT_TRUE(other.shows(package({1})));
}

TEST_F(RawExchange, LogsBadFramesOneByOneAndNoFloodOfThem) {
    session_->start();
    Bytes altered = controller_frame(kOutput, package({2}));
    altered.back() ^= 1;
    for (int i = 0; i < 5; ++i) {
        robot_->send(altered);
    }
    settle();
    EXPECT_EQ(count(Session::finished_log("sys_log"), " Error: raw_socket_recv: -103\n"), 5);
    log_init();
    Bytes wrong_marker = altered;
    wrong_marker[14] = 0xA7;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 300; ++i) {
        robot_->send(altered);
        robot_->send(wrong_marker);
        settle();
    }
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start);
    EXPECT_EQ(session_->latest(), Bytes());
    const std::string log = Session::finished_log("sys_log");
    EXPECT_THAT(log, HasSubstr(" Handle:0 "));
    EXPECT_GE(count(log, " Error: raw_socket_recv: -102\n"), 2);
    EXPECT_LE(count(log, "raw_socket_recv"), 10 * (seconds.count() + 2));
}

TEST_F(RawExchange, WhatAFrameDoesNotBringOfItsLengthCountsAsZero) {
    session_->start();
    const Bytes long_package = package(Bytes(1410, 0xAA));
    for (const Bytes& payload :
         {bytes("E8 03 11 22"), bytes("FF FF 33 44"), bytes("00 50 55 66"), bytes("01 00 77 88"),
          bytes("00 00 99 99"), bytes("03 00 55 66 77"), bytes("05"), bytes("")}) {
        send_output(long_package);
        ASSERT_TRUE(session_->shows(long_package));
        send_output(payload);
        settle();
        Bytes brought = payload;
        brought.resize(2);
        const size_t word = static_cast<size_t>(brought[0] | brought[1] << 8);
        brought = payload;
        brought.resize(word);
        Bytes expected = long_package + Bytes(100);
        std::copy_n(brought.begin(), std::min(word, expected.size()), expected.begin());
        EXPECT_EQ(session_->bytes_at(kStoreOffset, expected.size()), expected) << hex(payload);
    }
}

TEST_F(RawExchange, TakesFramesOfUpTo1440Bytes) {
    session_->start();
    const Bytes largest = package(Bytes(1410, 0x55));
    send_output(largest);
    EXPECT_TRUE(session_->shows(largest));
    for (const size_t values : {size_t{1411}, size_t{1484}}) {
        send_output(package(Bytes(values, 0x66)));
    }
    settle();
    EXPECT_EQ(session_->latest(), largest);
    EXPECT_THAT(Session::finished_log("sys_log"), HasSubstr(" Error: raw_socket_recv: -102\n"));
}
