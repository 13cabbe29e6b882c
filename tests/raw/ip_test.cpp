// Without this the IP mode could send other messages than a controller takes, or forget its peer.
// Every raw socket on loopback sees what any other sends there, its own messages too.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "tests/support/raw_link.h"

namespace test {
namespace {

class RawIp : public RawLink {
protected:
    void SetUp() override {
        RawLink::SetUp();
        if (IsSkipped()) {
            return;
        }
        ASSERT_EQ(socket_raw_create("host0", SOCKET_RAW_MODE_IP), 0);
        robot = Port::ip("10.0.0.5");
    }

    std::unique_ptr<Port> robot;
};

constexpr uint32_t kRobotAddress = 0x0A000005;

Bytes without_ip_header(const Bytes& datagram) {
    return Bytes(datagram.begin() + 20, datagram.end());
}

// A692 + C8B7 + 0102 + 0300 = 1734B, with the carry 734C, complement 8CB3; then sequence 1, which
// is 0100 more, 8BB3.
TEST_F(RawIp, SendsMessagesOfTheGivenLayout) {
    Bytes message = Bytes(8, 0xEE) + bytes("01 02 03");
    EXPECT_EQ(socket_raw_sendto(0, 0x92, message.data(), 11), -100);
    EXPECT_EQ(message[0], 0xEE);
    EXPECT_EQ(socket_raw_set_peerip(0, 0), -100);

    EXPECT_EQ(socket_raw_set_peerip(0, kRobotAddress), 0);
    EXPECT_EQ(socket_raw_sendto(0, 0x92, message.data(), 11), 11);
    EXPECT_EQ(hex(without_ip_header(robot->receive())),
              hex(bytes("A6 92 8C B3 C8 B7 00 00 01 02 03")));
    EXPECT_EQ(socket_raw_sendto(0, 0x92, message.data(), 11), 11);
    EXPECT_EQ(hex(without_ip_header(robot->receive())),
              hex(bytes("A6 92 8B B3 C8 B7 01 00 01 02 03")));
}

TEST_F(RawIp, CutsTheHeaderOfMessagesShorterThanIt) {
    EXPECT_EQ(socket_raw_set_peerip(0, kRobotAddress), 0);
    // A692 has the complement 596D; A692 + C8B7 + EE00 = 25D49, with the carry 5D4B, that of A2B4.
    for (const char* const expected :
         {"A6 92", "A6 92 EE", "A6 92 59 6D", "A6 92 A2 B4 C8 B7 EE"}) {
        Bytes message(bytes(expected).size(), 0xEE);
        const int length = static_cast<int>(message.size());
        EXPECT_EQ(length, socket_raw_sendto(0, 0x92, message.data(), length));
        EXPECT_EQ(hex(bytes(expected)), hex(message));
    }
    // The system wants two bytes at least.
    Bytes message(8);
    EXPECT_EQ(socket_raw_sendto(0, 0x92, message.data(), 0), -1);
    EXPECT_EQ(socket_raw_sendto(0, 0x92, message.data(), -1), -1);
    EXPECT_EQ(message, Bytes(8));
    EXPECT_EQ(socket_raw_sendto(0, 0x92, message.data(), 1), -1);
    EXPECT_EQ(hex(Bytes(&message[0], &message[2])), hex(bytes("A6 00")));
}

TEST_F(RawIp, LearnsItsPeerFromWhatArrives) {
    robot->send_to("10.0.0.9", controller_message(0x90, bytes("14 00 55")));
    const Received received = receive_next(0);
    EXPECT_EQ(received.result, 3);
    EXPECT_EQ(received.code, 0x90);
    EXPECT_EQ(received.advance, 28);
    EXPECT_EQ(hex(Bytes(&received.buffer[28], &received.buffer[31])), "14 00 55 ");

    Bytes message(8);
    EXPECT_EQ(socket_raw_sendto(0, 0x91, message.data(), 8), 8);
    EXPECT_EQ(message, without_ip_header(robot->receive()));

    // The latest sender takes over from one that was set or learned.
    const auto other = Port::ip("10.0.0.9");
    other->send_to("10.0.0.5", controller_message(0x92, {}));
    while (receive_next(0).code != 0x92) {
    }
    EXPECT_EQ(socket_raw_sendto(0, 0x93, message.data(), 8), 8);
    while (without_ip_header(other->receive()) != message) {
    }
}

TEST_F(RawIp, AdvancesPastTheIpHeaderOfForeignMessages) {
    // An echo reply, another marker and another magic number.
    const std::vector<Bytes> foreign = {bytes("00 00 FF FF 00 00 00 00"),
                                        bytes("A7 90 00 00 C8 B7 00 00 01"),
                                        bytes("A6 90 00 00 C8 B8 00 00")};
    for (const Bytes& message : foreign) {
        robot->send_to("10.0.0.9", message);
        const Received received = receive_next(0);
        EXPECT_EQ(received.result, -102) << hex(message);
        EXPECT_EQ(received.advance, 20);
        EXPECT_EQ(received.code, 0);
    }
    Bytes message(8);
    EXPECT_EQ(socket_raw_sendto(0, 0x91, message.data(), 8), -100) << "they teach no peer";
}

TEST_F(RawIp, StaysInsideASmallBuffer) {
    for (unsigned capacity = 1; capacity < 28; ++capacity) {
        robot->send_to("10.0.0.9", controller_message(0x90, bytes("01 02")));
        EXPECT_EQ(receive_next(0, capacity).result, -102) << capacity;
    }
    robot->send_to("10.0.0.9", controller_message(0x90, bytes("01 02")));
    EXPECT_EQ(receive_next(0, 29).result, 1) << "a datagram cut to what fits";
}

}  // namespace
}  // namespace test
