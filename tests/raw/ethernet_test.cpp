// Without this the Ethernet mode could send other frames than a controller takes, or take foreign
// ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <thread>

#include "tests/support/caller.h"
#include "tests/support/network_namespace.h"
#include "tests/support/process.h"
#include "tests/support/raw_link.h"

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

    EXPECT_EQ(socket_raw_sendto(instance, 0x91, frame.data(), 31), 31);
    const Bytes first = bytes(
        "01 0E CF 00 00 00  02 00 00 00 00 0A  C8 15"
        "  A6 91 70 7C C8 B7 00 00 05 00 12 34  01 02 03 04 05");
    EXPECT_EQ(hex(first), hex(robot->receive()));
    EXPECT_EQ(hex(first), hex(frame)) << "the header is written in place";

    EXPECT_EQ(socket_raw_sendto(instance, 0x91, frame.data(), 31), 31);
    EXPECT_EQ(hex(bytes("01 0E CF 00 00 00  02 00 00 00 00 0A  C8 15"
                        "  A6 91 6F 7C C8 B7 01 00 05 00 12 34  01 02 03 04 05")),
              hex(robot->receive()));
}

TEST_F(RawEthernet, UsesTheAddressesThatWereSet) {
    const Bytes controller = bytes("00 11 22 33 44 55");
    const Bytes host = bytes("66 77 88 99 AA BB");
    EXPECT_EQ(socket_raw_set_dstmac(instance, controller.data()), 0);
    EXPECT_EQ(socket_raw_set_srcmac(instance, host.data()), 0);
    Bytes read(6);
    EXPECT_EQ(socket_raw_get_srcmac(instance, read.data()), 0);
    EXPECT_EQ(hex(host), hex(read));

    Bytes frame(26);
    EXPECT_EQ(socket_raw_sendto(instance, 0x91, frame.data(), 26), 26);
    Bytes arrived = robot->receive();
    arrived.resize(12);
    EXPECT_EQ(hex(controller + host), hex(arrived));
}

// The buffer is exactly as long as the frame, so that a sanitizer sees any step beyond it.
TEST_F(RawEthernet, CutsTheHeaderOfFramesShorterThanIt) {
    Bytes frame(20, 0xEE);
    EXPECT_EQ(socket_raw_sendto(instance, 0x91, frame.data(), 20), 20);
    // A691 + C8B7 = 16F48, with the carry 6F49, complement 90B6.
    EXPECT_EQ(hex(robot->receive()),
              hex(bytes("01 0E CF 00 00 00  02 00 00 00 00 0A  C8 15  A6 91 90 B6 C8 B7")));
    for (int length = 14; length < 26; ++length) {
        Bytes shorter(static_cast<size_t>(length), 0xEE);
        EXPECT_EQ(length, socket_raw_sendto(instance, 0x91, shorter.data(), length));
    }
}

TEST_F(RawEthernet, LeavesLengthsThatTheLinkRefusesToTheSystem) {
    for (const int length : {0, 1, 13, 1600, 70000}) {
        Bytes frame(static_cast<size_t>(length));
        EXPECT_EQ(socket_raw_sendto(instance, 0x91, frame.data(), length), -1) << length;
    }
    Bytes frame(26);
    EXPECT_EQ(socket_raw_sendto(instance, 0x91, frame.data(), -5), -1);
    EXPECT_EQ(hex(frame), hex(Bytes(26)));
    EXPECT_EQ(socket_raw_sendto(instance, 0x91, frame.data(), 26), 26);
    EXPECT_EQ(frame[20], 6) << "refused frames count as well";
}

// A690 + C8B7 + 0700 + 0300 + AABB + CC00 = 2F002, with the carry F004, complement 0FFB.
TEST_F(RawEthernet, ReceivesAFrame) {
    robot->send(
        bytes("FF FF FF FF FF FF  02 00 00 00 00 0B  C8 15"
              "  A6 90 0F FB C8 B7 07 00 03 00 00 00  AA BB CC"));
    const Received received = receive_next(instance);
    EXPECT_EQ(received.result, 3);
    EXPECT_EQ(received.code, 0x90);
    EXPECT_EQ(received.advance, 26);
    EXPECT_EQ(hex(bytes("FF FF FF FF FF FF  02 00 00 00 00 0B  C8 15"
                        "  A6 90 00 00 C8 B7 07 00 03 00 00 00  AA BB CC")),
              hex(Bytes(received.buffer.begin(), received.buffer.begin() + 29)));
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
        EXPECT_EQ(received.advance, 0) << place;
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
        EXPECT_EQ(receive_next(instance).result, -102) << lie;
    }
    // A frame cut by the caller's capacity: its length word is honest, but lies all the same.
    for (unsigned capacity = 0; capacity < 31; ++capacity) {
        robot->send(controller_frame(0x90, bytes("14 00 55 03 11")));
        EXPECT_EQ(receive_next(instance, capacity).result, -102) << capacity;
    }
    robot->send(controller_frame(0x90, bytes("14 00 55 03 11")));
    EXPECT_EQ(receive_next(instance, 31).result, 5);
}

TEST_F(RawEthernet, SeesItsOwnEtherTypeOnly) {
    for (const uint8_t low : {uint8_t{0x14}, uint8_t{0x16}}) {
        Bytes foreign = controller_frame(0x90, bytes("01"));
        foreign[13] = low;
        robot->send(foreign);
    }
    robot->send(controller_frame(0x92, bytes("02")));
    EXPECT_EQ(receive_next(instance).code, 0x92);
    EXPECT_EQ(receive(instance).result, -101) << "without a wait";
}

TEST_F(RawEthernet, UnknownNamesStandForEveryInterface) {
    ASSERT_EQ(socket_raw_free(instance), 0);
    for (const char* name : {"nothing0", "", static_cast<const char*>(nullptr)}) {
        ASSERT_EQ(socket_raw_create(name, SOCKET_RAW_MODE_ETHERNET), 0);
        robot->send(controller_frame(0x90, bytes("01")));
        EXPECT_EQ(receive_next(0).result, 1);
        Port::ethernet("host0")->send(controller_frame(0x92, bytes("02 03")));
        EXPECT_EQ(receive_next(0).result, 2);
        Bytes frame(26);
        EXPECT_EQ(socket_raw_sendto(0, 0x91, frame.data(), 26), -1);
        socket_raw_free(0);
    }
}

// For the thread sanitizer: one sender, one receiver and a setter share an instance.
TEST_F(RawEthernet, SendsAndReceivesAtOnce) {
    Caller sender([this] {
        Bytes frame(40);
        int sent = 0;
        while (sent < 500 && socket_raw_sendto(instance, 0x91, frame.data(), 40) == 40) {
            ++sent;
        }
        return sent;
    });
    Caller receiver([this] {
        for (int i = 0; i < 500; ++i) {
            receive(instance);
        }
        return 0;
    });
    for (int i = 0; i < 500; ++i) {
        robot->send(controller_frame(0x90, bytes("01")));
        socket_raw_set_dstmac(instance, Bytes(6, static_cast<uint8_t>(i % 2)).data());
    }
    EXPECT_EQ(sender.result(), 500);
    receiver.result();
    for (int i = 0; i < 100; ++i) {
        const Bytes frame = robot->receive();
        const Bytes destination(frame.begin(), frame.begin() + 6);
        EXPECT_TRUE(destination == Bytes(6, destination[0]) || destination[1] == 0x0E)
            << "mixed of two: " << hex(destination);
    }
}

}  // namespace
}  // namespace test
