// Without this the examples of the transports could be broken.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <csignal>

#include "net/udp.h"
#include "tests/net_helpers/pty_pair.h"
#include "tests/support/loopback.h"
#include "tests/support/program.h"

using test::Program;

TEST(SerialEchoExample, SendsBackWhatArrivesUntilTheLineHangsUp) {
    test::PtyPair pty;
    Program echo({SERIAL_ECHO, pty.device, "57600"});
    ASSERT_TRUE(echo.ready());
    pty.put("\x03\x04\x11 raw\r\n");
    EXPECT_EQ(pty.get(9), "\x03\x04\x11 raw\r\n");
    pty.hang_up();
    EXPECT_EQ(echo.status(), 0);
    EXPECT_NE(echo.output().find("9 bytes echoed\n"), std::string::npos) << echo.output();
    EXPECT_EQ(Program({SERIAL_ECHO, "/dev/no-such-line"}).status(), 1);
    EXPECT_EQ(Program({SERIAL_ECHO}).status(), 2);
}

TEST(UdpBeaconExample, SendsNumberedBeaconsAndShowsAnswers) {
    const uint32_t address = test::own_address() | 255;
    int receiver = socket_udp_create(40000 + getpid() % 20000, address);
    ASSERT_GE(receiver, 0);
    in_addr text{htonl(address)};
    Program beacon({UDP_BEACON, inet_ntoa(text), std::to_string(test::port_of(receiver)), "2"});

    uint16_t port = 0;
    uint32_t sender = 0;
    for (const std::string expected : {"beacon 1", "beacon 2"}) {
        char received[32];
        pollfd ready{receiver, POLLIN, 0};
        ASSERT_EQ(poll(&ready, 1, 10'000), 1);
        const long length =
            socket_udp_recvfrom(receiver, &port, &sender, received, sizeof received);
        EXPECT_EQ(std::string(received, static_cast<size_t>(length)), expected);
        socket_udp_sendto(receiver, port, sender, "here I am", 9);
    }
    EXPECT_EQ(beacon.status(), 0);
    const std::string answer = std::string(inet_ntoa(text)) + ':' +
                               std::to_string(test::port_of(receiver)) + " answers: here I am\n";
    EXPECT_EQ(beacon.output(), answer + answer);
    socket_udp_close(&receiver);
    EXPECT_EQ(Program({UDP_BEACON, "nowhere", "1", "1"}).status(), 2);
}
