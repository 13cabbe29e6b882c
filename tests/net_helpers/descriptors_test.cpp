// Without this descriptors of some number could not be waited for, or be given away to a child.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <vector>

#include "net/exchange_socket.h"
#include "net/select.h"
#include "net/serial.h"
#include "net/udp.h"
#include "tests/net_helpers/pty_pair.h"
#include "tests/support/loopback.h"

using test::PtyPair;
using test::TcpLink;
using namespace std::chrono_literals;

namespace {

int connect_exchange(const TcpLink& link) {
    return socket_connect(test::own_loopback().c_str(), test::port_of(link.listener));
}

int connect_line(const PtyPair& pty) {
    int channel = -1;
    EXPECT_EQ(tty_connect(pty.device.c_str(), 9600, 8, 1, 'N', &channel, nullptr), 0);
    return channel;
}

// Whether a system call may open descriptors of `number` and above from now on.
bool open_all_below(int number) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    int fd = -1;
    do {
        fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    } while (fd >= 0 && fd < number - 1);
    return fd >= 0;
}

}  // namespace

// A daemon closes its standard streams. What it prints afterwards must not go to a controller.
TEST(Descriptors, AreNoStandardStreamsAndCloseOnExec) {
    const PtyPair pty;
    const TcpLink link;
    EXPECT_EQ(test::in_child([&] {
                  for (const int stream : {0, 1, 2}) {
                      close(stream);
                  }
                  const TcpLink other(0);
                  const std::vector<int> made = {other.listener,
                                                 other.client,
                                                 other.server,
                                                 connect_exchange(other),
                                                 socket_udp_create(0, 0),
                                                 tty_getinstfd(connect_line(pty))};
                  for (const int fd : made) {
                      if (fd <= STDERR_FILENO || (fcntl(fd, F_GETFD) & FD_CLOEXEC) == 0) {
                          return 1;
                      }
                  }
                  return fcntl(0, F_GETFD) + fcntl(1, F_GETFD) + fcntl(2, F_GETFD) == -3 ? 0 : 2;
              }),
              0);
}

// A process may have more of them than a select set has room for.
TEST(Descriptors, OfAnyNumberAreWaitedFor) {
    if (!open_all_below(FD_SETSIZE)) {
        GTEST_SKIP() << "the process may not have that many descriptors";
    }
    const PtyPair pty;
    const int line = connect_line(pty);
    const TcpLink link(0);
    const int exchange = connect_exchange(link);
    ASSERT_GE(tty_getinstfd(line), FD_SETSIZE);
    int peer = socket_tcp_accept(link.listener);

    char buffer[4];
    EXPECT_EQ(socket_send(exchange, "abc", 3), 3);
    EXPECT_EQ(socket_tcp_select(peer, nullptr, 0), 1);
    EXPECT_EQ(socket_recv(peer, buffer, sizeof buffer, 0), 3);
    EXPECT_EQ(socket_recv(peer, buffer, sizeof buffer, 0), -2);
    uint32_t events = 0;
    EXPECT_EQ(sys_generic_select(peer, 0, &events), 1);
    EXPECT_EQ(events, SYS_GENERIC_SELECT_WRITABLE);

    std::vector<int> fds(FD_SETSIZE, peer);
    std::vector<uint32_t> ready(fds.size(), 7);
    fds.push_back(exchange);
    ready.push_back(7);
    EXPECT_EQ(socket_send(exchange, "d", 1), 1);
    EXPECT_EQ(sys_generic_select_multiread(fds.data(), FD_SETSIZE + 1, 999'999, ready.data()), 1);
    EXPECT_EQ(ready.front(), 1u);
    EXPECT_EQ(ready.back(), 7u);

    pty.put("x");
    EXPECT_EQ(tty_select(line, nullptr), 1);
}

// The time goes to the system as it is, also more than a million microseconds.
TEST(Descriptors, AreWaitedForAsLongAsTheTimeSays) {
    const PtyPair pty;
    const int line = connect_line(pty);
    const TcpLink link;
    const std::function<int(timeval*)> waits[] = {
        [&](timeval* limit) { return socket_tcp_select(link.client, limit, 0); },
        [&](timeval* limit) { return tty_select(line, limit); }};
    for (const auto& wait : waits) {
        timeval limit{0, 1'200'000};
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(wait(&limit), 0);
        EXPECT_GE(std::chrono::steady_clock::now() - start, 1200ms);
        EXPECT_EQ(limit.tv_sec * 1'000'000 + limit.tv_usec, 0);
        limit = {0, -1};
        EXPECT_EQ(wait(&limit), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    pty.put("x");
    EXPECT_EQ(socket_tcp_send(link.server, reinterpret_cast<const uint8_t*>("x"), 1), 1);
    for (const auto& wait : waits) {
        timeval limit{59, 1'200'000};
        EXPECT_EQ(wait(&limit), 1);
        EXPECT_EQ(limit.tv_sec, 60) << "what remains is left";
        EXPECT_LT(limit.tv_usec, 200'000);
    }
}
