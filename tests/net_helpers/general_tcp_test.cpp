// Without this a general TCP socket could differ in options, waits or results from what is
// promised.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/ip.h>
#include <netinet/tcp.h>

#include <chrono>
#include <cstring>
#include <vector>

#include "net/tcp.h"
#include "tests/net_helpers/interrupt.h"
#include "tests/support/loopback.h"
#include "tests/support/process.h"

using test::own_address;
using test::port_of;
using test::TcpLink;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

const auto* as_bytes(const char* text) {
    return reinterpret_cast<const uint8_t*>(text);
}

bool non_blocking(int fd) {
    return (fcntl(fd, F_GETFL) & O_NONBLOCK) != 0;
}

// A listener whose queue is full: it does not answer any more.
class SilentListener {
public:
    SilentListener() {
        do {
            queued_.push_back(-1);
        } while (queued_.size() < 10 &&
                 socket_tcp_connect(&queued_.back(), port_of(listener), own_address(), 0) == 0);
    }
    ~SilentListener() {
        for (int& fd : queued_) {
            socket_tcp_close(&fd);
        }
        socket_tcp_close(&listener);
    }

    int listener = socket_tcp_listen(0, own_address(), 0);

private:
    std::vector<int> queued_;
};

class GeneralTcpConnect : public ::testing::TestWithParam<int> {};

}  // namespace

TEST_P(GeneralTcpConnect, MakesAConnectionWithLowDelayThatCarriesDataBothWays) {
    TcpLink link(GetParam());
    EXPECT_EQ(test::option(link.client, IPPROTO_TCP, TCP_NODELAY), 1);
    EXPECT_EQ(test::option(link.client, IPPROTO_IP, IP_TOS), 0x10);
    EXPECT_EQ(non_blocking(link.client), GetParam() == 0);

    uint8_t buffer[8] = {};
    EXPECT_EQ(socket_tcp_send(link.client, as_bytes("ping"), 4), 4);
    EXPECT_EQ(socket_tcp_recv(link.server, buffer, sizeof buffer), 4);
    EXPECT_EQ(std::memcmp(buffer, "ping", 4), 0);

    EXPECT_EQ(socket_tcp_send(link.server, as_bytes("pong"), 4), 4);
    EXPECT_EQ(socket_tcp_select(link.client, nullptr, 0), 1);
    EXPECT_EQ(socket_tcp_recv(link.client, buffer, 3), 3);
    EXPECT_EQ(std::memcmp(buffer, "pon", 3), 0);

    socket_tcp_close(&link.server);
    EXPECT_EQ(link.server, -1);
    EXPECT_EQ(socket_tcp_recv(link.client, buffer, 1), 1);
    EXPECT_EQ(socket_tcp_select(link.client, nullptr, 0), 1);
    EXPECT_EQ(socket_tcp_recv(link.client, buffer, 1), 0);
}

TEST_P(GeneralTcpConnect, LeavesNothingBehindWhenNobodyListens) {
    int port = 0;
    {
        const TcpLink link;
        port = port_of(link.listener);
    }
    const auto before = test::open_descriptors();
    int fd = 77;
    EXPECT_EQ(socket_tcp_connect(&fd, port, own_address(), GetParam()), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_EQ(fd, -1);
    EXPECT_EQ(test::open_descriptors(), before);

    EXPECT_EQ(socket_tcp_connect(nullptr, port, own_address(), GetParam()), -1);
    EXPECT_EQ(errno, EINVAL);
}

INSTANTIATE_TEST_SUITE_P(, GeneralTcpConnect, ::testing::Values(0, 1), [](const auto& test_case) {
    return test_case.param == 0 ? "NonBlocking" : "Blocking";
});

TEST(GeneralTcp, NonBlockingConnectEndsAfterHalfASecondOrWithASignal) {
    SilentListener silent;
    const auto before = test::open_descriptors();
    const auto start = Clock::now();
    int fd = 77;
    const auto connect_and_fail = [&] {
        return socket_tcp_connect(&fd, port_of(silent.listener), own_address(), 0) == 0 ? 0 : errno;
    };
    EXPECT_EQ(connect_and_fail(), ETIMEDOUT);
    EXPECT_GE(Clock::now() - start, 490ms);
    EXPECT_LT(Clock::now() - start, 5s);
    EXPECT_EQ(fd, -1);
    EXPECT_EQ(test::call_interrupted(connect_and_fail), EINTR);
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST(GeneralTcp, ListensOnTheGivenAddressAndPort) {
    int listener = socket_tcp_listen(0, own_address(7), 4);
    ASSERT_GE(listener, 0);
    const int port = port_of(listener);
    EXPECT_EQ(test::option(listener, SOL_SOCKET, SO_REUSEADDR), 1);
    EXPECT_FALSE(non_blocking(listener));

    const auto before = test::open_descriptors();
    EXPECT_EQ(socket_tcp_listen(port, own_address(7), 4), -1);
    EXPECT_EQ(errno, EADDRINUSE);
    EXPECT_EQ(test::open_descriptors(), before);

    int elsewhere = socket_tcp_listen(0x10000 + port, own_address(8), 4);
    EXPECT_EQ(port_of(elsewhere), port) << "only 16 bits of the port count";
    socket_tcp_close(&elsewhere);
    socket_tcp_close(&listener);
    EXPECT_EQ(socket_tcp_accept(listener), -1);
}

TEST(GeneralTcp, OptionsAreSetOnATcpSocketOnly) {
    TcpLink link;
    socket_tcp_set_keepalive(link.server);
    EXPECT_EQ(test::option(link.server, SOL_SOCKET, SO_KEEPALIVE), 1);
    EXPECT_EQ(test::option(link.server, IPPROTO_TCP, TCP_KEEPIDLE), 3);
    EXPECT_EQ(test::option(link.server, IPPROTO_TCP, TCP_KEEPINTVL), 1);
    EXPECT_EQ(test::option(link.server, IPPROTO_TCP, TCP_KEEPCNT), 2);
    socket_tcp_set_keepalive(-1);

    EXPECT_EQ(socket_tcp_set_ipv4_options(-1), -1);
    EXPECT_EQ(errno, EBADF);
    int datagrams = socket(AF_INET, SOCK_DGRAM, 0);
    EXPECT_EQ(socket_tcp_set_ipv4_options(datagrams), -1);
    EXPECT_EQ(test::option(datagrams, IPPROTO_IP, IP_TOS), 0) << "stops at the first failure";
    socket_tcp_close(&datagrams);
    EXPECT_EQ(datagrams, -1);
    socket_tcp_close(&datagrams);
    socket_tcp_close(nullptr);
}

TEST(GeneralTcp, FlushDiscards1400BytesACall) {
    TcpLink link;
    EXPECT_EQ(socket_tcp_flush(link.client), -1);
    const std::vector<uint8_t> data(3000, 0x55);
    ASSERT_EQ(socket_tcp_send(link.server, data.data(), 3000), 3000);
    ASSERT_TRUE(test::wait_until([&] {
        uint8_t seen[3000];
        return recv(link.client, seen, sizeof seen, MSG_PEEK | MSG_DONTWAIT) == 3000;
    }));
    EXPECT_EQ(socket_tcp_flush(link.client), 1400);
    EXPECT_EQ(socket_tcp_flush(link.client), 1400);
    EXPECT_EQ(socket_tcp_flush(link.client), 200);
    EXPECT_EQ(socket_tcp_flush(link.client), -1);
    socket_tcp_close(&link.server);
    EXPECT_EQ(socket_tcp_select(link.client, nullptr, 0), 1);
    EXPECT_EQ(socket_tcp_flush(link.client), -1) << "the peer has closed";
    EXPECT_EQ(socket_tcp_flush(-1), -1);
}

TEST(GeneralTcp, WritesAddressesInDottedForm) {
    EXPECT_STREQ(socket_tcp_inet_ntoa(0x7F000001), "127.0.0.1");
    EXPECT_STREQ(socket_tcp_inet_ntoa(0xC0A801FE), "192.168.1.254");
    EXPECT_STREQ(socket_tcp_inet_ntoa(0xFFFFFFFF), "255.255.255.255");
}
