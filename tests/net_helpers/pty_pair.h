// A pseudo terminal: a serial device with a wire to the test.
#ifndef TESTS_NET_HELPERS_PTY_PAIR_H
#define TESTS_NET_HELPERS_PTY_PAIR_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <string>

namespace test {

class PtyPair {
public:
    PtyPair() : wire(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        EXPECT_EQ(grantpt(wire), 0);
        EXPECT_EQ(unlockpt(wire), 0);
        device = ptsname(wire);
    }
    ~PtyPair() { hang_up(); }
    PtyPair(const PtyPair&) = delete;
    PtyPair& operator=(const PtyPair&) = delete;

    void hang_up() {
        if (wire >= 0) {
            close(wire);
        }
        wire = -1;
    }

    termios settings() const {
        termios found{};
        EXPECT_EQ(tcgetattr(wire, &found), 0);
        return found;
    }

    void put(const std::string& text) const {
        EXPECT_EQ(write(wire, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    // Waits for `count` bytes from the device.
    std::string get(size_t count) const {
        std::string text;
        pollfd ready{wire, POLLIN, 0};
        while (text.size() < count && poll(&ready, 1, 10'000) > 0) {
            char chunk[1024];
            const ssize_t got = read(wire, chunk, std::min(sizeof chunk, count - text.size()));
            if (got <= 0) {
                break;
            }
            text.append(chunk, static_cast<size_t>(got));
        }
        return text;
    }

    int wire;
    std::string device;
};

}  // namespace test

#endif
