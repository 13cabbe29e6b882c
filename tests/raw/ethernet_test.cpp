// Ethernet mode over a real link.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <thread>

#include "tests/raw/raw_link.h"
#include "tests/support/network_namespace.h"
#include "tests/support/process.h"

namespace test {
namespace {

class RawEthernet : public RawLink {
protected:
    void SetUp() override {
        RawLink::SetUp();
        if (IsSkipped()) {
            return;
        }
        instance = open_ethernet();
        robot = Port::ethernet("robot0");
    }

    int instance = -1;
    std::unique_ptr<Port> robot;
};

// Checksums summed up by hand: A691 + C8B7 + 0000 + 0500 + 1234 + 0102 + 0304 + 0500 = 18F82,
// with the carry 8F83, complement 707C; the next sequence number, in the upper byte, takes 0100.
TEST_F(RawEthernet, SendsFramesOfTheGivenLayout) {
    Bytes frame = Bytes(24, 0xEE) + bytes("12 34 01 02 03 04 05");

    EXPECT_EQ(31, socket_raw_sendto(instance, 0x91, frame.data(), 31));
    const Bytes first = bytes(
        "01 0E CF 00 00 00  02 00 00 00 00 0A  C8 15"
        "  A6 91 70 7C C8 B7 00 00 05 00 12 34  01 02 03 04 05");
    EXPECT_EQ(hex(first), hex(robot->receive()));
    EXPECT_EQ(hex(first), hex(frame)) << "the header is written in place";

    EXPECT_EQ(31, socket_raw_sendto(instance, 0x91, frame.data(), 31));
    EXPECT_EQ(hex(bytes("01 0E CF 00 00 00  02 00 00 00 00 0A  C8 15"
                        "  A6 91 6F 7C C8 B7 01 00 05 00 12 34  01 02 03 04 05")),
              hex(robot->receive()));
}

TEST_F(RawEthernet, UsesTheAddressesThatWereSet) {
    const Bytes controller = bytes("00 11 22 33 44 55");
    const Bytes host = bytes("66 77 88 99 AA BB");
    EXPECT_EQ(0, socket_raw_set_dstmac(instance, controller.data()));
    EXPECT_EQ(0, socket_raw_set_srcmac(instance, host.data()));
    Bytes read(6);
    EXPECT_EQ(0, socket_raw_get_srcmac(instance, read.data()));
    EXPECT_EQ(hex(host), hex(read));

    Bytes frame(26);
    EXPECT_EQ(26, socket_raw_sendto(instance, 0x91, frame.data(), 26));
    Bytes arrived = robot->receive();
    arrived.resize(12);
    EXPECT_EQ(hex(controller + host), hex(arrived));
}

TEST_F(RawEthernet, SendsEveryLengthWithItsLengthAndChecksum) {
    for (const int length : {26, 27, 28, 59, 60, 61, 283, 1466, 1513, 1514}) {
        Bytes frame(static_cast<size_t>(length));
        for (size_t i = 24; i < frame.size(); ++i) {
            frame[i] = static_cast<uint8_t>(i * 7);
        }
        EXPECT_EQ(length, socket_raw_sendto(instance, 0x92, frame.data(), length));
        const Bytes arrived = robot->receive();
        ASSERT_EQ(frame.size(), arrived.size());
        EXPECT_EQ(length - 26, arrived[22] | arrived[23] << 8);
        EXPECT_EQ(0, reference_checksum(Bytes(arrived.begin() + 14, arrived.end()))) << length;
    }
}

// The buffer is exactly as long as the frame, so that a sanitizer sees any step beyond it.
TEST_F(RawEthernet, CutsTheHeaderOfFramesShorterThanIt) {
    Bytes frame(20, 0xEE);
    EXPECT_EQ(20, socket_raw_sendto(instance, 0x91, frame.data(), 20));
    // A691 + C8B7 = 16F48, with the carry 6F49, complement 90B6.
    EXPECT_EQ(hex(bytes("01 0E CF 00 00 00  02 00 00 00 00 0A  C8 15  A6 91 90 B6 C8 B7")),
              hex(robot->receive()));
    for (int length = 14; length < 26; ++length) {
        Bytes shorter(static_cast<size_t>(length), 0xEE);
        EXPECT_EQ(length, socket_raw_sendto(instance, 0x91, shorter.data(), length));
    }
}

TEST_F(RawEthernet, LeavesLengthsThatTheLinkRefusesToTheSystem) {
    for (const int length : {0, 1, 13, 1600, 70000}) {
        Bytes frame(static_cast<size_t>(length));
        EXPECT_EQ(-1, socket_raw_sendto(instance, 0x91, frame.data(), length)) << length;
    }
    Bytes frame(26);
    EXPECT_EQ(-1, socket_raw_sendto(instance, 0x91, frame.data(), -5));
    EXPECT_EQ(hex(Bytes(26)), hex(frame));
    EXPECT_EQ(26, socket_raw_sendto(instance, 0x91, frame.data(), 26));
    EXPECT_EQ(6, frame[20]) << "refused frames count as well";
}

TEST_F(RawEthernet, SequenceNumbersWrap) {
    Bytes frame(26);
    for (int i = 0; i < 65535; ++i) {
        ASSERT_EQ(26, socket_raw_sendto(instance, 0x91, frame.data(), 26));
        ASSERT_EQ(i, frame[20] | frame[21] << 8);
    }
    socket_raw_sendto(instance, 0x91, frame.data(), 26);
    EXPECT_EQ("FF FF ", hex(Bytes(&frame[20], &frame[22])));
    socket_raw_sendto(instance, 0x91, frame.data(), 26);
    EXPECT_EQ("00 00 ", hex(Bytes(&frame[20], &frame[22])));
}

// A690 + C8B7 + 0700 + 0300 + AABB + CC00 = 2F002, with the carry F004, complement 0FFB.
TEST_F(RawEthernet, ReceivesAFrame) {
    robot->send(
        bytes("FF FF FF FF FF FF  02 00 00 00 00 0B  C8 15"
              "  A6 90 0F FB C8 B7 07 00 03 00 00 00  AA BB CC"));
    const Received received = receive_next(instance);
    EXPECT_EQ(3, received.result);
    EXPECT_EQ(0x90, received.code);
    EXPECT_EQ(26, received.advance);
    EXPECT_EQ(hex(bytes("FF FF FF FF FF FF  02 00 00 00 00 0B  C8 15"
                        "  A6 90 00 00 C8 B7 07 00 03 00 00 00  AA BB CC")),
              hex(Bytes(received.buffer.begin(), received.buffer.begin() + 29)));
}

TEST_F(RawEthernet, ReceivesOddAndPaddedAndFullFrames) {
    for (const size_t length : {size_t{0}, size_t{1}, size_t{255}, size_t{1488}}) {
        robot->send(controller_frame(0x92, Bytes(length, 0xA5)));
        EXPECT_EQ(static_cast<long>(length), receive_next(instance).result);
    }
    robot->send(controller_frame(0x90, bytes("01 02 03")) + Bytes(31, 0xFF));
    EXPECT_EQ(3, receive_next(instance).result) << "what the link pads is not looked at";
}

TEST_F(RawEthernet, RefusesAlteredFrames) {
    const Bytes good = controller_frame(0x90, bytes("14 00 55 03 11"));
    for (size_t place = 14; place < good.size(); ++place) {
        Bytes altered = good;
        altered[place] ^= 0x01;
        robot->send(altered);
        const Received received = receive_next(instance);
        // Marker and magic make it foreign; 5 ^ 1 and 256 + 5 as its length are one less and too
        // much; all the rest is for the checksum to find.
        const bool foreign = place == 14 || place == 18 || place == 19 || place == 23;
        EXPECT_EQ(foreign ? -102 : -103, received.result) << place;
        EXPECT_EQ(0, received.advance) << place;
        const Bytes checksum(&received.buffer[16], &received.buffer[18]);
        EXPECT_EQ(foreign ? hex(Bytes(&altered[16], &altered[18])) : "00 00 ", hex(checksum))
            << place;
        EXPECT_EQ(foreign ? 0 : altered[15], received.code) << place;
    }
}

TEST_F(RawEthernet, RefusesLengthsBeyondWhatWasReceived) {
    for (const unsigned lie : {6u, 7u, 0x0105u, 0xFFF4u, 0xFFFFu}) {
        Bytes frame = controller_frame(0x90, bytes("14 00 55 03 11"));
        frame[22] = static_cast<uint8_t>(lie);
        frame[23] = static_cast<uint8_t>(lie >> 8);
        robot->send(frame);
        EXPECT_EQ(-102, receive_next(instance).result) << lie;
    }
    // A frame cut by the caller's capacity: its length word is honest, but lies all the same.
    for (unsigned capacity = 0; capacity < 31; ++capacity) {
        robot->send(controller_frame(0x90, bytes("14 00 55 03 11")));
        EXPECT_EQ(-102, receive_next(instance, capacity).result) << capacity;
    }
    robot->send(controller_frame(0x90, bytes("14 00 55 03 11")));
    EXPECT_EQ(5, receive_next(instance, 31).result);
}

TEST_F(RawEthernet, SeesItsOwnEtherTypeOnly) {
    for (const uint8_t low : {uint8_t{0x14}, uint8_t{0x16}}) {
        Bytes foreign = controller_frame(0x90, bytes("01"));
        foreign[13] = low;
        robot->send(foreign);
    }
    robot->send(controller_frame(0x92, bytes("02")));
    EXPECT_EQ(0x92, receive_next(instance).code);
    EXPECT_EQ(-101, receive(instance).result) << "without a wait";
}

// The system takes the tag off, so that the payload is where the position says.
TEST_F(RawEthernet, ReceivesAFrameThatWasTaggedOnTheLink) {
    Bytes frame = controller_frame(0x90, bytes("DE AD"));
    const Bytes tag = bytes("81 00 00 05");
    frame.insert(frame.begin() + 12, tag.begin(), tag.end());
    robot->send(frame);
    const Received received = receive_next(instance);
    EXPECT_EQ(2, received.result);
    EXPECT_EQ(26, received.advance);
    EXPECT_EQ("DE AD ", hex(Bytes(&received.buffer[26], &received.buffer[28])));
}

TEST_F(RawEthernet, UnknownNamesStandForEveryInterface) {
    ASSERT_EQ(0, socket_raw_free(instance));
    for (const char* name : {"nothing0", "", static_cast<const char*>(nullptr)}) {
        ASSERT_EQ(0, socket_raw_create(name, SOCKET_RAW_MODE_ETHERNET));
        robot->send(controller_frame(0x90, bytes("01")));
        EXPECT_EQ(1, receive_next(0).result);
        Port::ethernet("host0")->send(controller_frame(0x92, bytes("02 03")));
        EXPECT_EQ(2, receive_next(0).result);
        Bytes frame(26);
        EXPECT_EQ(-1, socket_raw_sendto(0, 0x91, frame.data(), 26));
        socket_raw_free(0);
    }
}

TEST_F(RawEthernet, ReportsALinkThatWentAway) {
    run_ip("link delete host0");
    Bytes frame(26);
    EXPECT_EQ(-1, socket_raw_sendto(instance, 0x91, frame.data(), 26));
    EXPECT_EQ(-101, receive(instance).result);
    EXPECT_EQ(0, socket_raw_free(instance));
}

// For the thread sanitizer: one sender, one receiver and the setters share an instance.
TEST_F(RawEthernet, SendsAndReceivesAtOnce) {
    constexpr int frames = 500;
    std::thread sender([this] {
        Bytes frame(40);
        for (int i = 0; i < frames; ++i) {
            EXPECT_EQ(40, socket_raw_sendto(instance, 0x91, frame.data(), 40));
        }
    });
    std::thread receiver([this] {
        for (int i = 0; i < frames; ++i) {
            receive(instance);
        }
    });
    const Bytes one = bytes("11 11 11 11 11 11");
    const Bytes two = bytes("22 22 22 22 22 22");
    for (int i = 0; i < frames; ++i) {
        robot->send(controller_frame(0x90, bytes("01")));
        socket_raw_set_dstmac(instance, (i % 2 == 0 ? one : two).data());
    }
    sender.join();
    receiver.join();
    const Bytes group(sock_raw_mcast_addr, sock_raw_mcast_addr + 6);
    for (int i = 0; i < 100; ++i) {
        Bytes destination = robot->receive();
        destination.resize(6);
        EXPECT_TRUE(destination == one || destination == two || destination == group)
            << hex(destination);
    }
}

}  // namespace
}  // namespace test
