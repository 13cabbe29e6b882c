// Without this a serial line could have another speed or format than asked for. A pseudo terminal
// does not take all settings, so those asked for are looked at, and those that the kernel then has.
#include "net/serial_line.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/net_helpers/pty_pair.h"

namespace {

struct BaudCase {
    unsigned baud;
    speed_t speed;
};

// The last ones are not listed.
constexpr BaudCase kBaudCases[] = {
    {110, B110},         {300, B300},         {600, B600},         {1200, B1200},
    {2400, B2400},       {4800, B4800},       {9600, B9600},       {19200, B19200},
    {38400, B38400},     {57600, B57600},     {115200, B115200},   {230400, B230400},
    {460800, B460800},   {500000, B500000},   {576000, B576000},   {921600, B921600},
    {1000000, B1000000}, {1152000, B1152000}, {1500000, B1500000}, {2500000, B2500000},
    {3000000, B3000000}, {3500000, B3500000}, {4000000, B4000000}, {2000000, B9600},
    {1800, B9600},       {0, B9600},          {115201, B9600},     {50, B9600},
    {~0u, B9600}};

termios settings(unsigned baud, int data_bits, int stop_bits, int parity) {
    termios made;
    EXPECT_TRUE(vexo::make_raw_settings(baud, data_bits, stop_bits, parity, made));
    return made;
}

}  // namespace

TEST(SerialSettings, EachBaudRateReachesTheDevice) {
    const test::PtyPair pty;
    for (const auto& [baud, speed] : kBaudCases) {
        int fd = -1;
        ASSERT_EQ(vexo::tty_local_connect(pty.device.c_str(), baud, 8, 1, 'N', &fd, nullptr), 0);
        const termios now = pty.settings();
        EXPECT_EQ(cfgetispeed(&now), speed) << baud;
        EXPECT_EQ(cfgetospeed(&now), speed) << baud;
        close(fd);
    }
}

TEST(SerialSettings, OtherFlagsThanThoseOfTheFormatAreOff) {
    const struct {
        int data_bits, stop_bits, parity;
        tcflag_t control, input;
    } cases[] = {
        {8, 1, 'N', CS8, 0},
        {7, 1, 'N', CS7, 0},
        {6, 1, 'N', CS6, 0},
        {5, 1, 'N', CS5, 0},
        {9, 1, 'N', CS8, 0},
        {0, 1, 'N', CS8, 0},
        {8, 2, 'N', CS8 | CSTOPB, 0},
        {8, 0, 'N', CS8 | CSTOPB, 0},
        {8, 1, 'E', CS8 | PARENB, INPCK},
        {8, 1, 'O', CS8 | PARENB | PARODD, INPCK},
        {8, 1, 'X', CS8 | PARENB | PARODD, INPCK},
        {8, 1, 'n', CS8 | PARENB | PARODD, INPCK},
        {7, 2, 'E', CS7 | CSTOPB | PARENB, INPCK},
    };
    for (const auto& [data_bits, stop_bits, parity, control, input] : cases) {
        const termios made = settings(9600, data_bits, stop_bits, parity);
        SCOPED_TRACE(std::to_string(data_bits) + static_cast<char>(parity) +
                     std::to_string(stop_bits));
        EXPECT_EQ(made.c_cflag, control | CLOCAL | CREAD | B9600);
        EXPECT_EQ(made.c_iflag, input);
        EXPECT_EQ(made.c_oflag, 0u);
        EXPECT_EQ(made.c_lflag, 0u);
        EXPECT_EQ(made.c_cc[VMIN], 0);
        EXPECT_EQ(made.c_cc[VTIME], 1);
    }
}
