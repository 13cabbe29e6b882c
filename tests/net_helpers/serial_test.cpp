// Without this a serial channel could lose blocks or mix channels: real ones on pseudo terminals,
// and virtual ones with the test as the pump.
#include "net/serial.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <climits>
#include <numeric>
#include <string>
#include <vector>

#include "tests/net_helpers/pty_pair.h"
#include "tests/support/process.h"

using test::PtyPair;

namespace {

int connect_line(const PtyPair& pty) {
    int channel = 77;
    EXPECT_EQ(tty_connect(pty.device.c_str(), 115200, 8, 1, 'N', &channel, nullptr), 0);
    return channel;
}

int connect_virtual() {
    int channel = 77;
    EXPECT_EQ(tty_connect("", 0, 0, 0, 0, &channel, nullptr), 0);
    return channel;
}

std::string receive(int channel, int capacity = TTY_BLOCK_SIZE) {
    char buffer[2 * TTY_BLOCK_SIZE];
    const long count = tty_recv(channel, buffer, capacity);
    return count < 0 ? "failed" : std::string(buffer, static_cast<size_t>(count));
}

int poll_line(int channel) {
    timeval at_once{0, 0};
    return tty_select(channel, &at_once);
}

int hand_in(int channel, const std::string& block, int flags = 0) {
    return tty_pop_data(channel, reinterpret_cast<const uint8_t*>(block.data()),
                        static_cast<unsigned>(block.size()), flags, 0);
}

// What the pump gets: "channel:block", or "none".
std::string take() {
    int channel = 77;
    uint8_t data[TTY_BLOCK_SIZE];
    uint32_t length = 7777;
    if (tty_push_data(&channel, data, &length) != 0) {
        EXPECT_EQ(channel, 77);
        EXPECT_EQ(length, 7777u);
        return "none";
    }
    return std::to_string(channel) + ':' + std::string(reinterpret_cast<char*>(data), length);
}

}  // namespace

TEST(SerialChannels, AreFiveAndTheLowestFreeOneIsTaken) {
    EXPECT_EQ(tty_getinstfd(0), 0) << "the table is not set up yet";
    const PtyPair pty;
    EXPECT_EQ(connect_virtual(), 0);
    EXPECT_EQ(tty_getinstfd(1), -1);
    EXPECT_EQ(connect_line(pty), 1);
    EXPECT_EQ(connect_virtual(), 2);
    EXPECT_EQ(tty_connect(nullptr, 0, 0, 0, 0, nullptr, nullptr), 0);
    EXPECT_EQ(connect_virtual(), 4);
    EXPECT_EQ(tty_getinstfd(0), 0);
    EXPECT_GT(tty_getinstfd(1), 2);
    EXPECT_EQ(tty_getinstfd(3), 3);

    const auto before = test::open_descriptors();
    int channel = 77;
    EXPECT_EQ(tty_connect("", 0, 0, 0, 0, &channel, nullptr), -1);
    EXPECT_EQ(channel, -1);
    EXPECT_EQ(tty_connect(pty.device.c_str(), 9600, 8, 1, 'N', nullptr, nullptr), -1);
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST(SerialChannels, OutsideTheTableChangeNothing) {
    connect_virtual();
    for (const int channel : {-1, 5, INT_MIN, INT_MAX}) {
        timeval forever{1000, 0};
        EXPECT_EQ(tty_getinstfd(channel), -1);
        EXPECT_EQ(tty_send(channel, "x", 1), 0);
        EXPECT_EQ(receive(channel), "");
        EXPECT_EQ(tty_select(channel, &forever), 0);
        EXPECT_EQ(tty_flush(channel), 0);
        EXPECT_EQ(hand_in(channel, "x"), 0);
    }
    EXPECT_EQ(take(), "none");
}

TEST(SerialLine, StaysFreeWhenTheDeviceFails) {
    const auto before = test::open_descriptors();
    // One is missing, and one opens but is no terminal.
    for (const char* device : {"/dev/no-such-line", "/dev/null"}) {
        int channel = 77;
        termios saved{};
        EXPECT_EQ(tty_connect(device, 9600, 8, 1, 'N', &channel, &saved), -1) << device;
        EXPECT_EQ(channel, -1);
        EXPECT_EQ(tty_getinstfd(0), -1);
        EXPECT_EQ(test::open_descriptors(), before);

        errno = 0;
        EXPECT_EQ(tty_select(0, nullptr), -1) << "it is a real channel without a descriptor";
        EXPECT_EQ(errno, EBADF);
        EXPECT_EQ(tty_send(0, "x", 1), -1);
    }
    EXPECT_EQ(connect_virtual(), 0);
    EXPECT_EQ(poll_line(0), 0);
}

TEST(SerialLine, IsRawAndItsOldSettingsAreSaved) {
    const PtyPair pty;
    const termios before = pty.settings();
    termios saved{};
    int channel = -1;
    // Of the format only the low eight bits count.
    EXPECT_EQ(tty_connect(pty.device.c_str(), 19200, 0x108, 0x101, 0x100 + 'N', &channel, &saved),
              0);
    const int fd = tty_getinstfd(channel);
    EXPECT_EQ(saved.c_lflag, before.c_lflag);
    EXPECT_EQ(saved.c_cflag, before.c_cflag);
    EXPECT_EQ(saved.c_iflag, before.c_iflag);

    EXPECT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_ACCMODE, O_RDWR);
    const termios now = pty.settings();
    EXPECT_EQ(now.c_lflag, 0u);
    EXPECT_EQ(now.c_oflag, 0u);
    EXPECT_EQ(now.c_iflag, 0u);
    EXPECT_EQ(now.c_cflag & CSTOPB, 0u);
    EXPECT_EQ(cfgetospeed(&now), static_cast<speed_t>(B19200));
    EXPECT_EQ(now.c_cc[VMIN], 0);
    EXPECT_EQ(now.c_cc[VTIME], 1);

    EXPECT_EQ(tcsetattr(fd, TCSANOW, &saved), 0);
    EXPECT_EQ(pty.settings().c_lflag, before.c_lflag);
}

TEST(SerialLine, CarriesEveryByteBothWays) {
    const PtyPair pty;
    const int channel = connect_line(pty);
    std::string all(256, '\0');
    std::iota(all.begin(), all.end(), '\0');

    EXPECT_EQ(tty_send(channel, all.data(), 256), 256);
    EXPECT_EQ(pty.get(256), all);
    EXPECT_EQ(tty_send(channel, all.data(), 1025), 0);

    pty.put(all);
    ASSERT_EQ(tty_select(channel, nullptr), 1);
    EXPECT_EQ(receive(channel, 100), all.substr(0, 100));
    EXPECT_EQ(receive(channel), all.substr(100));
    EXPECT_EQ(receive(channel), "failed");
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(receive(channel, -1), "");
    EXPECT_EQ(tty_recv(channel, nullptr, 8), 0);
    EXPECT_EQ(hand_in(channel, "x"), 0) << "nothing is handed in to a real line";

    pty.put("stale");
    ASSERT_EQ(tty_select(channel, nullptr), 1);
    EXPECT_EQ(tty_flush(channel), 0);
    EXPECT_EQ(poll_line(channel), 0);
}

TEST(VirtualChannel, HandsEachSentBlockToThePumpOnce) {
    const int channel = connect_virtual();
    EXPECT_EQ(take(), "none");
    EXPECT_EQ(tty_send(channel, "0123456789", 10), 10);
    EXPECT_EQ(take(), "0:0123456789");
    EXPECT_EQ(take(), "none") << "taken";

    EXPECT_EQ(tty_send(channel, "first", 5), 5);
    EXPECT_EQ(tty_send(channel, "2nd", 3), 3);
    EXPECT_EQ(take(), "0:2nd") << "a new block replaces one that waits";

    EXPECT_EQ(tty_send(channel, "", 0), 0);
    EXPECT_EQ(take(), "0:") << "an empty block is a block";

    EXPECT_EQ(tty_send(channel, "again", 5), 5);
    EXPECT_EQ(tty_push_data(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(take(), "none");

    tty_send(channel, "x", 1);
    EXPECT_EQ(hand_in(channel, "", 0x7F), 0);
    EXPECT_EQ(take(), "0:x") << "only bit 7 acknowledges";
    tty_send(channel, "x", 1);
    EXPECT_EQ(tty_pop_data(channel, nullptr, 0, 0x1FF, 0), 0);
    EXPECT_EQ(take(), "none") << "an acknowledgement withdraws a block that waits";
}

TEST(VirtualChannel, ThePumpServesTheLowestChannelUpToTheFirstFreeOne) {
    for (int i = 0; i < 3; ++i) {
        connect_virtual();
    }
    EXPECT_EQ(tty_send(3, "nobody", 6), 6) << "a free channel takes a block all the same";
    EXPECT_EQ(take(), "none");
    tty_send(2, "c", 1);
    tty_send(1, "b", 1);
    EXPECT_EQ(take(), "1:b");
    EXPECT_EQ(take(), "2:c");
    EXPECT_EQ(connect_virtual(), 3);
    EXPECT_EQ(take(), "none") << "a channel starts idle";
}

TEST(VirtualChannel, GivesTheApplicationWhatThePumpHandsIn) {
    const int channel = connect_virtual();
    EXPECT_EQ(receive(channel), "");
    EXPECT_EQ(hand_in(channel, "12345678"), 8);
    EXPECT_EQ(tty_select(channel, nullptr), 1);
    EXPECT_EQ(receive(channel, -1), "");
    EXPECT_EQ(tty_recv(channel, nullptr, 8), 0);
    EXPECT_EQ(receive(channel, 3), "123");
    EXPECT_EQ(poll_line(channel), 1);
    EXPECT_EQ(receive(channel, 10), "45678");
    EXPECT_EQ(poll_line(channel), 0);
    EXPECT_EQ(tty_select(channel, nullptr), 0) << "it never waits";

    hand_in(channel, "replaced");
    EXPECT_EQ(hand_in(channel, "new"), 3);
    EXPECT_EQ(receive(channel), "new");
    hand_in(channel, "gone");
    EXPECT_EQ(hand_in(channel, ""), 0);
    EXPECT_EQ(poll_line(channel), 0);
    EXPECT_EQ(tty_pop_data(channel, nullptr, 8, 0, 0), 0);
}

TEST(VirtualChannel, SendingWithdrawsWhatWasHandedInButKeepsItsCount) {
    const int channel = connect_virtual();
    hand_in(channel, "12345");
    tty_send(channel, "x", 1);
    EXPECT_EQ(poll_line(channel), 0);
    EXPECT_EQ(receive(channel), "");
    EXPECT_EQ(tty_flush(channel), 5);
    EXPECT_EQ(tty_flush(channel), 0);

    hand_in(channel, "12345");
    EXPECT_EQ(tty_flush(channel), 5);
    EXPECT_EQ(poll_line(channel), 0);
    EXPECT_EQ(take(), "0:x") << "flushing leaves the sent block";
}

TEST(VirtualChannel, BlocksAreAtMost1024Bytes) {
    const int channel = connect_virtual();
    const std::string longest(TTY_BLOCK_SIZE, 'L');
    hand_in(channel, "kept");
    EXPECT_EQ(tty_send(channel, (longest + 'x').data(), 1025), 0);
    EXPECT_EQ(tty_send(channel, nullptr, 4), 0);
    EXPECT_EQ(poll_line(channel), 1) << "nothing has changed";
    EXPECT_EQ(take(), "none");

    EXPECT_EQ(tty_send(channel, longest.data(), TTY_BLOCK_SIZE), 1024);
    EXPECT_EQ(take(), "0:" + longest);
    EXPECT_EQ(hand_in(channel, longest + "beyond"), 1024);
    EXPECT_EQ(receive(channel, 1100), longest);
    EXPECT_EQ(take(), "none") << "the neighbouring buffer is untouched";
}
