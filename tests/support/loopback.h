// Sockets on this process's own loopback addresses.
#ifndef TESTS_SUPPORT_LOOPBACK_H
#define TESTS_SUPPORT_LOOPBACK_H

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>

#include "net/tcp.h"
#include "tests/support/process.h"

namespace test {

inline uint32_t own_address(int number = 1) {
    return ntohl(inet_addr(own_loopback(number).c_str()));
}

// The port that a socket is bound to.
inline int port_of(int fd) {
    sockaddr_in local{};
    socklen_t size = sizeof local;
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&local), &size), 0);
    return ntohs(local.sin_port);
}

inline int option(int fd, int level, int name) {
    int value = -1;
    socklen_t size = sizeof value;
    EXPECT_EQ(getsockopt(fd, level, name, &value, &size), 0);
    return value;
}

// A listener and a connection to it, both ends.
class TcpLink {
public:
    explicit TcpLink(int blocking = 1) {
        listener = socket_tcp_listen(0, own_address(), 4);
        EXPECT_GE(listener, 0);
        EXPECT_EQ(socket_tcp_connect(&client, port_of(listener), own_address(), blocking), 0);
        server = socket_tcp_accept(listener);
        EXPECT_GE(server, 0);
    }
    ~TcpLink() {
        socket_tcp_close(&client);
        socket_tcp_close(&server);
        socket_tcp_close(&listener);
    }
    TcpLink(const TcpLink&) = delete;
    TcpLink& operator=(const TcpLink&) = delete;

    int listener = -1;
    int client = -1;
    int server = -1;
};

}  // namespace test

#endif
