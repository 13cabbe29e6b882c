#include "net/serial_line.h"

#include <fcntl.h>

#include <algorithm>
#include <iterator>

#include "base/owned_descriptor.h"

namespace vexo {

namespace {

struct LineSpeed {
    unsigned int baud;
    speed_t code;
};

// 2000000 is missing on purpose: it falls back to 9600 like every other value not listed.
constexpr LineSpeed kLineSpeeds[] = {
    {4000000, B4000000}, {3500000, B3500000}, {3000000, B3000000}, {2500000, B2500000},
    {1500000, B1500000}, {1152000, B1152000}, {1000000, B1000000}, {921600, B921600},
    {576000, B576000},   {500000, B500000},   {460800, B460800},   {230400, B230400},
    {115200, B115200},   {57600, B57600},     {38400, B38400},     {19200, B19200},
    {9600, B9600},       {4800, B4800},       {2400, B2400},       {1200, B1200},
    {600, B600},         {300, B300},         {110, B110},
};

speed_t speed_of(unsigned int baud) {
    const auto* found = std::ranges::find(kLineSpeeds, baud, &LineSpeed::baud);
    return found == std::end(kLineSpeeds) ? B9600 : found->code;
}

tcflag_t character_size(int data_bits) {
    switch (data_bits) {
        case 5:
            return CS5;
        case 6:
            return CS6;
        case 7:
            return CS7;
        default:
            return CS8;
    }
}

tcflag_t parity_flags(int parity) {
    switch (parity) {
        case 'N':
            return 0;
        case 'E':
            return PARENB;
        default:
            return PARENB | PARODD;
    }
}

}  // namespace

// Flags that are not set here stay off: no line editing, echo, signals, output processing, and no
// flow control by characters or lines.
bool make_raw_settings(unsigned int baud, int data_bits, int stop_bits, int parity,
                       termios& settings) {
    settings = {};
    settings.c_cflag = CLOCAL | CREAD | character_size(data_bits) | parity_flags(parity) |
                       (stop_bits == 1 ? 0 : CSTOPB);
    settings.c_iflag = parity == 'N' ? 0 : INPCK;
    settings.c_cc[VMIN] = 0;
    settings.c_cc[VTIME] = 1;  // tenths of a second
    const speed_t speed = speed_of(baud);
    return cfsetispeed(&settings, speed) == 0 && cfsetospeed(&settings, speed) == 0;
}

int tty_local_connect(const char* device, unsigned int baud, int data_bits, int stop_bits,
                      int parity, int* fd, termios* saved) {
    OwnedDescriptor line(open(device, O_RDWR | O_NOCTTY | O_NONBLOCK | O_EXCL | O_CLOEXEC));
    if (!line) {
        return -1;
    }
    if (saved != nullptr) {
        tcgetattr(line.get(), saved);
    }
    termios settings;
    if (!make_raw_settings(baud, data_bits, stop_bits, parity, settings) ||
        tcsetattr(line.get(), TCSANOW, &settings) != 0) {
        return -1;
    }
    *fd = line.release();
    return 0;
}

}  // namespace vexo
