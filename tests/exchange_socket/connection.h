// A connection of the exchange and the listener's end of it, and what its functions report.
#ifndef TESTS_EXCHANGE_SOCKET_CONNECTION_H
#define TESTS_EXCHANGE_SOCKET_CONNECTION_H

#include <poll.h>

#include "net/exchange_socket.h"
#include "tests/support/log_files.h"
#include "tests/support/loopback.h"
#include "tests/support/outcome.h"

namespace test {

struct Connection {
    Connection() : listener(socket_tcp_listen(0, own_address(), 4)) {
        fd = socket_connect(own_loopback().c_str(), port_of(listener));
        EXPECT_GE(fd, 0);
        peer = socket_tcp_accept(listener);
        EXPECT_GE(peer, 0);
    }
    ~Connection() {
        socket_close(fd);
        socket_tcp_close(&peer);
        socket_tcp_close(&listener);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // The peer ends the connection without the order of a close.
    void reset() {
        const linger hard{1, 0};
        setsockopt(peer, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
        socket_tcp_close(&peer);
        pollfd ended{fd, 0, 0};
        EXPECT_EQ(poll(&ended, 1, 10000), 1);
    }

    int listener;
    int fd = -1;
    int peer = -1;
};

// What becomes of a call, with the errno that it leaves and what it logs.
struct Account : Outcome {
    int error = 0;
    std::vector<std::string> logged;
};

// The log runs for the call alone. `entry_error` is the errno that the call finds.
template <typename Call>
Account account_of(Call call, int entry_error = 0) {
    Account outcome;
    std::filesystem::remove(kGeneralFile);
    log_init();
    outcome.printed = printed_by([&] {
        errno = entry_error;
        outcome.result = call();
        outcome.error = errno;
    });
    log_cleanup();
    if (std::filesystem::exists(kGeneralFile)) {
        outcome.logged = lines_after(kGeneralBanner, read_file(kGeneralFile));
    }
    return outcome;
}

// The call failed with -1, and printed and logged the same text under its own name.
inline void expect_failure(const Account& outcome, const std::string& function,
                           const std::string& text) {
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.printed, text + "\n");
    EXPECT_EQ(outcome.logged,
              std::vector<std::string>{"Function:" + function + " Handle:0 " + text});
}

inline void expect_silence(const Account& outcome) {
    EXPECT_EQ(outcome.printed, "");
    EXPECT_TRUE(outcome.logged.empty());
}

}  // namespace test

#endif
