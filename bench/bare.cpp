#include "bench/bare.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>

#include "bench/machine.h"

namespace bench {

namespace {

constexpr suseconds_t kLimitMicroseconds = 5000;

}  // namespace

int connect_bare(const std::string& address, int port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, address.c_str(), &peer.sin_addr);
    require(connect(fd, reinterpret_cast<sockaddr*>(&peer), sizeof peer) == 0, "cannot connect");
    return fd;
}

bool ready_to_send(int fd) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    timeval limit{0, kLimitMicroseconds};
    return select(fd + 1, nullptr, &set, nullptr, &limit) == 1;
}

bool ready_to_receive(int fd) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    timeval limit{0, kLimitMicroseconds};
    return select(fd + 1, &set, nullptr, nullptr, &limit) == 1;
}

void ask(int fd, const Bytes& request) {
    uint8_t reply[64];
    require(send(fd, request.data(), request.size(), MSG_NOSIGNAL) > 0 &&
                recv(fd, reply, sizeof reply, 0) > 0,
            "the controller does not answer");
}

}  // namespace bench
