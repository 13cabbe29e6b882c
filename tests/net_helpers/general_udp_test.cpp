// Without this a datagram could go astray, or hide its sender.
#include <gtest/gtest.h>

#include <string>

#include "net/tcp.h"
#include "net/udp.h"
#include "tests/support/loopback.h"

using test::own_address;
using test::port_of;

namespace {

// A socket on a port of its own, chosen by the system.
class UdpSocket {
public:
    explicit UdpSocket(uint32_t address = own_address()) {
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_addr.s_addr = htonl(address);
        EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local), 0);
    }
    ~UdpSocket() { socket_udp_close(&fd); }

    int port() const { return port_of(fd); }

    int fd = socket_udp_create(0, 0);
};

}  // namespace

TEST(GeneralUdp, IsBoundOnlyToAPortThatIsNotZero) {
    int unbound = socket_udp_create(0x10000, own_address());
    ASSERT_GE(unbound, 0);
    EXPECT_EQ(port_of(unbound), 0);
    socket_udp_close(&unbound);
    EXPECT_EQ(unbound, -1);

    const UdpSocket taken;
    const auto before = test::open_descriptors();
    EXPECT_EQ(socket_udp_create(taken.port(), own_address()), -1);
    EXPECT_EQ(errno, EADDRINUSE);
    EXPECT_EQ(test::open_descriptors(), before);

    int bound = socket_udp_create(0x10000 + taken.port(), own_address(2));
    EXPECT_EQ(port_of(bound), taken.port());
    socket_udp_close(&bound);
}

TEST(GeneralUdp, DatagramsTellTheirSender) {
    const UdpSocket sender(own_address(1));
    const UdpSocket receiver(own_address(2));
    char buffer[16];
    uint16_t port = 0;
    uint32_t address = 0;
    EXPECT_EQ(socket_udp_sendto(sender.fd, receiver.port(), own_address(2), "hello", 5), 5);
    EXPECT_EQ(socket_udp_recvfrom(receiver.fd, &port, &address, buffer, sizeof buffer), 5);
    EXPECT_EQ(std::string(buffer, 5), "hello");
    EXPECT_EQ(port, sender.port());
    EXPECT_EQ(address, own_address(1));

    EXPECT_EQ(socket_udp_sendto(sender.fd, receiver.port(), own_address(2), "hello", 5), 5);
    EXPECT_EQ(socket_udp_recvfrom(receiver.fd, nullptr, nullptr, buffer, 2), 2);

    port = 1;
    address = 2;
    EXPECT_EQ(socket_udp_sendto(sender.fd, receiver.port(), own_address(2), "", 0), 0);
    EXPECT_EQ(socket_udp_recvfrom(receiver.fd, &port, &address, buffer, sizeof buffer), 0);
    EXPECT_EQ(port, 1) << "an empty datagram does not tell its sender";
    EXPECT_EQ(address, 2u);

    EXPECT_EQ(socket_udp_recvfrom(-1, &port, &address, buffer, sizeof buffer), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST(GeneralUdp, SendingToABroadcastAddressGrantsThePermissionForGood) {
    const UdpSocket sender;
    const UdpSocket receiver(INADDR_ANY);
    const auto permitted = [&] { return test::option(sender.fd, SOL_SOCKET, SO_BROADCAST); };

    EXPECT_EQ(socket_udp_sendto(sender.fd, receiver.port(), 0x7F0001FE, "x", 1), 1);
    EXPECT_EQ(permitted(), 0);
    EXPECT_EQ(socket_udp_sendto(sender.fd, receiver.port(), 0x7FFFFFFF, "yy", 2), 2);
    EXPECT_EQ(permitted(), 1);
    EXPECT_EQ(socket_udp_sendto(sender.fd, receiver.port(), 0x7F0001FE, "x", 1), 1);
    EXPECT_EQ(permitted(), 1);

    char buffer[4];
    EXPECT_EQ(socket_udp_recvfrom(receiver.fd, nullptr, nullptr, buffer, sizeof buffer), 1);
    EXPECT_EQ(socket_udp_recvfrom(receiver.fd, nullptr, nullptr, buffer, sizeof buffer), 2);
}
