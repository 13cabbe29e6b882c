#include "net/exchange_socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/owned_descriptor.h"
#include "base/racing_copy.h"
#include "log/report.h"
#include "net/error_description.h"
#include "net/wait.h"

namespace vexo {

namespace {

char err_desc[sizeof(ErrorText::text)];  // the description that was made last, by any thread

constexpr int kSynRetries = 2;
constexpr suseconds_t kSendWaitMicroseconds = 5000;

void report_error(const char* function, const char* what) {
    report({0, function}, "%s - %s", what, describe_error(errno).text);
}

// Waits until `fd` has the event; a null limit is none.
int wait_ready(int fd, short event, const timeval* limit) {
    pollfd watched{fd, event, 0};
    return wait_for_events({&watched, 1}, limit);
}

// Connects `fd`; on failure reports why and returns false.
bool connect_to(int fd, const char* address, int port) {
    setsockopt(fd, IPPROTO_TCP, TCP_SYNCNT, &kSynRetries, sizeof kSynRetries);

    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(static_cast<uint16_t>(port));
    if (inet_pton(AF_INET, address, &peer.sin_addr) < 1) {
        report({0, "socket_connect"}, "Invalid address %s - %s", address,
               describe_error(errno).text);
        return false;
    }
    if (connect(fd, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) < 0) {
        report_error("socket_connect", "Connection failed");
        return false;
    }
    return true;
}

}  // namespace

ErrorText describe_error(int error_number) {
    const ErrorText description(error_number);
    racing_copy(err_desc, description.text, std::strlen(description.text) + 1);
    return description;
}

}  // namespace vexo

using namespace vexo;

const char* socket_get_error_desc(int error_number) {
    describe_error(error_number == -1 ? errno : error_number);
    return err_desc;
}

int socket_connect(const char* address, int port) {
    if (address == nullptr) {
        address = "";
    }
    OwnedDescriptor made(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP));
    if (!made) {
        report({0, "socket_connect"}, "Socket creation failed for %s:%d - %s", address, port,
               describe_error(errno).text);
        return -1;
    }
    return connect_to(made.get(), address, port) ? made.release() : -1;
}

int socket_send(int fd, const void* data, unsigned int length) {
    const timeval limit{0, kSendWaitMicroseconds};
    const int ready = wait_ready(fd, POLLOUT, &limit);
    if (ready < 0) {
        report_error("socket_send", "Select error");
        return -1;
    }
    if (ready == 0) {
        report({0, "socket_send"},
               "Timeout occurred! Socket not ready to send after 5 milliseconds.");
        return -1;
    }
    const ssize_t sent = send(fd, data, length, MSG_NOSIGNAL);
    if (sent < 0) {
        report_error("socket_send", "Send failed");
        return -1;
    }
    return static_cast<int>(sent);
}

int socket_recv(int fd, void* buffer, unsigned int capacity, int timeout) {
    const timeval limit{0, timeout};
    const int ready = wait_ready(fd, POLLIN, timeout < 0 ? nullptr : &limit);
    if (ready < 0) {
        report_error("socket_recv", "Select error");
        return VEXO_SOCKET_ERROR;
    }
    if (ready == 0) {
        return VEXO_SOCKET_TIMEOUT;
    }
    const ssize_t received = recv(fd, buffer, capacity, 0);
    if (received < 0) {
        report_error("socket_recv", "Receive failed");
        return VEXO_SOCKET_ERROR;
    }
    return static_cast<int>(received);
}

int socket_close(int fd) {
    return close(fd);
}

void socket_cleanup(void) {}
