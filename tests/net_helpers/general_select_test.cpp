// Without this the two selects could report, refuse or wait otherwise than is promised.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <chrono>
#include <vector>

#include "net/select.h"
#include "tests/net_helpers/interrupt.h"
#include "tests/support/loopback.h"

using test::TcpLink;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

void send_byte(int fd) {
    ASSERT_EQ(send(fd, "x", 1, 0), 1);
}

// Sends until no more fits, so that the other end has something to read and this one no room.
void fill(int fd) {
    const std::vector<char> data(1 << 16);
    while (send(fd, data.data(), data.size(), MSG_DONTWAIT) > 0) {
    }
}

}  // namespace

TEST(GeneralSelect, ReportsReadableAndWritable) {
    TcpLink link;
    uint32_t events = 99;
    EXPECT_EQ(sys_generic_select(link.client, 0, &events), 1);
    EXPECT_EQ(events, SYS_GENERIC_SELECT_WRITABLE);

    send_byte(link.server);
    ASSERT_EQ(socket_tcp_select(link.client, nullptr, 0), 1);
    EXPECT_EQ(sys_generic_select(link.client, 999'999, &events), 2);
    EXPECT_EQ(events, SYS_GENERIC_SELECT_READABLE | SYS_GENERIC_SELECT_WRITABLE);
    EXPECT_EQ(sys_generic_select(link.client, 0, nullptr), 2);

    fill(link.client);
    EXPECT_EQ(sys_generic_select(link.client, 0, &events), 1);
    EXPECT_EQ(events, SYS_GENERIC_SELECT_READABLE);
}

TEST(GeneralSelect, ReportsNoEventWhenTheTimeIsOver) {
    TcpLink link;
    fill(link.client);
    uint32_t events = 99;
    const auto start = Clock::now();
    EXPECT_EQ(sys_generic_select(link.client, 50'000, &events), 0);
    EXPECT_GE(Clock::now() - start, 49ms);
    EXPECT_EQ(events, 0u);

    EXPECT_EQ(
        test::call_interrupted([&] { return sys_generic_select(link.client, 500'000, &events); }),
        0);
    EXPECT_EQ(test::call_interrupted(
                  [&] { return sys_generic_select_multiread(&link.client, 1, 500'000, &events); }),
              0);
}

TEST(GeneralSelect, RefusesAMillionMicroseconds) {
    TcpLink link;
    for (const unsigned timeout : {1'000'000u, 1'500'000u, ~0u}) {
        uint32_t events = 99;
        errno = 0;
        EXPECT_EQ(sys_generic_select(link.client, timeout, &events), -1) << timeout;
        EXPECT_EQ(errno, EINVAL) << timeout;
        EXPECT_EQ(events, 0u);
        errno = 0;
        EXPECT_EQ(sys_generic_select_multiread(&link.client, 1, timeout, &events), -1) << timeout;
        EXPECT_EQ(errno, EINVAL) << timeout;
    }
}

TEST(GeneralSelect, RefusesDescriptorsThatAreNotOpen) {
    TcpLink link;
    const int closed = dup(link.client);
    close(closed);
    for (const int fd : {-1, INT_MIN, INT_MAX, closed}) {
        uint32_t events = 99;
        errno = 0;
        EXPECT_EQ(sys_generic_select(fd, 0, &events), -1) << fd;
        EXPECT_EQ(errno, EBADF) << fd;
        EXPECT_EQ(events, 0u);

        const int fds[] = {link.client, fd};
        uint32_t ready[] = {7, 7};
        errno = 0;
        EXPECT_EQ(sys_generic_select_multiread(fds, 2, 0, ready), -1) << fd;
        EXPECT_EQ(errno, EBADF) << fd;
        EXPECT_EQ(ready[0], 7u);

        timeval at_once{0, 0};
        errno = 0;
        EXPECT_EQ(socket_tcp_select(fd, &at_once, 0), -1) << fd;
        EXPECT_EQ(errno, EBADF) << fd;
    }
}

TEST(GeneralSelect, MarksTheReadableOfManyAndLeavesTheOthers) {
    TcpLink first;
    TcpLink second;
    TcpLink third;
    const int fds[] = {third.client, first.client, second.client, first.client};
    uint32_t ready[] = {7, 7, 7, 7};
    EXPECT_EQ(sys_generic_select_multiread(fds, 4, 1000, ready), 0);
    EXPECT_EQ(ready[0], 7u);

    send_byte(first.server);
    send_byte(third.server);
    ASSERT_EQ(socket_tcp_select(first.client, nullptr, 0), 1);
    ASSERT_EQ(socket_tcp_select(third.client, nullptr, 0), 1);
    EXPECT_EQ(sys_generic_select_multiread(fds, 4, 1000, ready), 2)
        << "one that is listed twice counts once";
    EXPECT_EQ(ready[0], 1u);
    EXPECT_EQ(ready[1], 1u);
    EXPECT_EQ(ready[2], 7u);
    EXPECT_EQ(ready[3], 1u);
    EXPECT_EQ(sys_generic_select_multiread(fds, 4, 1000, nullptr), 2);
}

TEST(GeneralSelect, WaitsForNoneOfNone) {
    const auto start = Clock::now();
    EXPECT_EQ(sys_generic_select_multiread(nullptr, 0, 50'000, nullptr), 0);
    EXPECT_GE(Clock::now() - start, 49ms);
    EXPECT_EQ(sys_generic_select_multiread(nullptr, 1, 0, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}
