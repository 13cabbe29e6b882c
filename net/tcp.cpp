#include "net/tcp.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "base/owned_descriptor.h"
#include "base/retry.h"
#include "net/ipv4_address.h"
#include "net/wait.h"

using vexo::Ipv4Address;
using vexo::OwnedDescriptor;

namespace {

int set_option(int fd, int level, int name, int value) {
    return setsockopt(fd, level, name, &value, sizeof value);
}

int fail_with(int cause) {
    errno = cause;
    return -1;
}

// Waits half a second for a connection that is on its way.
int finish_connect(int fd) {
    const timeval limit{.tv_sec = 0, .tv_usec = 500'000};
    pollfd watched{fd, POLLOUT, 0};
    const int ready = vexo::wait_for_events({&watched, 1}, &limit);
    if (ready < 1) {
        return ready == 0 ? fail_with(ETIMEDOUT) : -1;
    }
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) != 0) {
        return -1;
    }
    return error == 0 ? 0 : fail_with(error);
}

int connect_socket(int fd, const Ipv4Address& peer) {
    const int result = connect(fd, peer.get(), peer.size());
    return result == -1 && errno == EINPROGRESS ? finish_connect(fd) : result;
}

}  // namespace

int socket_tcp_set_ipv4_options(int fd) {
    if (set_option(fd, IPPROTO_TCP, TCP_NODELAY, 1) != 0) {
        return -1;
    }
    return set_option(fd, IPPROTO_IP, IP_TOS, IPTOS_LOWDELAY);
}

void socket_tcp_set_keepalive(int fd) {
    set_option(fd, SOL_SOCKET, SO_KEEPALIVE, 1);
    set_option(fd, IPPROTO_TCP, TCP_KEEPIDLE, 3);
    set_option(fd, IPPROTO_TCP, TCP_KEEPINTVL, 1);
    set_option(fd, IPPROTO_TCP, TCP_KEEPCNT, 2);
}

int socket_tcp_connect(int* fd, int port, uint32_t address, int blocking) {
    if (fd == nullptr) {
        return fail_with(EINVAL);
    }
    *fd = -1;
    const int mode = blocking == 0 ? SOCK_NONBLOCK : 0;
    OwnedDescriptor made(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | mode, 0));
    if (!made || socket_tcp_set_ipv4_options(made.get()) != 0 ||
        connect_socket(made.get(), Ipv4Address(address, port)) != 0) {
        return -1;
    }
    *fd = made.release();
    return 0;
}

void socket_tcp_close(int* fd) {
    if (fd != nullptr && *fd != -1) {
        close(*fd);
        *fd = -1;
    }
}

int socket_tcp_listen(int port, uint32_t address, int backlog) {
    const Ipv4Address local(address, port);
    OwnedDescriptor made(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP));
    if (!made || set_option(made.get(), SOL_SOCKET, SO_REUSEADDR, 1) != 0 ||
        bind(made.get(), local.get(), local.size()) != 0 || listen(made.get(), backlog) != 0) {
        return -1;
    }
    return made.release();
}

int socket_tcp_accept(int listening_fd) {
    return OwnedDescriptor(accept4(listening_fd, nullptr, nullptr, SOCK_CLOEXEC)).release();
}

int socket_tcp_select(int fd, timeval* limit, int) {
    return vexo::wait_readable(fd, limit);
}

int socket_tcp_flush(int fd) {
    uint8_t discarded[1400];  // the call's own, so that threads may flush at the same time
    const ssize_t count = recv(fd, discarded, sizeof discarded, MSG_DONTWAIT);
    return count < 1 ? -1 : static_cast<int>(count);
}

long socket_tcp_send(int fd, const uint8_t* data, unsigned int length) {
    return send(fd, data, length, MSG_NOSIGNAL);
}

long socket_tcp_recv(int fd, uint8_t* buffer, unsigned int capacity) {
    return vexo::retry_interrupted([=] { return recv(fd, buffer, capacity, 0); });
}

const char* socket_tcp_inet_ntoa(uint32_t address) {
    return inet_ntoa({htonl(address)});
}
