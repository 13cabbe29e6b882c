#include "session/link.h"

#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <mutex>

#include "session/descriptor.h"

namespace vexo::session {

namespace {

void set(int descriptor, int level, int option, int value) {
    setsockopt(descriptor, level, option, &value, sizeof value);
}

// A peer that does not acknowledge for so long is gone. The session's own limits are shorter; this
// is for what they do not see.
constexpr int kGoneMilliseconds = 5000;

}  // namespace

Link::Link(const in_addr& address, uint16_t port)
    : port_(port),
      descriptor_(above_standard(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))) {
    if (descriptor_ < 0) {
        return;
    }
    set(descriptor_, IPPROTO_TCP, TCP_NODELAY, 1);
    set(descriptor_, IPPROTO_TCP, TCP_USER_TIMEOUT, kGoneMilliseconds);
    set(descriptor_, SOL_SOCKET, SO_KEEPALIVE, 1);
    set(descriptor_, IPPROTO_TCP, TCP_KEEPIDLE, 1);
    set(descriptor_, IPPROTO_TCP, TCP_KEEPINTVL, 1);
    set(descriptor_, IPPROTO_TCP, TCP_KEEPCNT, kGoneMilliseconds / 1000);
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(port);
    peer.sin_addr = address;
    // What comes of it is asked later, by connect_result().
    if (connect(descriptor_, reinterpret_cast<sockaddr*>(&peer), sizeof peer) != 0 &&
        errno != EINPROGRESS) {
        refusal_ = errno;
    }
}

Link::~Link() {
    if (descriptor_ >= 0) {
        close(descriptor_);
    }
}

int Link::connect_result() const {
    if (refusal_ != 0) {
        return refusal_;
    }
    int result = 0;
    socklen_t size = sizeof result;
    getsockopt(descriptor_, SOL_SOCKET, SO_ERROR, &result, &size);
    return result;
}

void Link::stamp_arrivals() {
    set(descriptor_, SOL_SOCKET, SO_TIMESTAMPNS, 1);
}

Sent Link::send(std::span<const uint8_t> message) {
    const std::lock_guard lock(sending_);
    if (broken_) {
        return Sent::broken;
    }
    ssize_t sent = 0;
    do {
        sent = ::send(descriptor_, message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    if (sent == static_cast<ssize_t>(message.size())) {
        return Sent::whole;
    }
    if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
        return Sent::no_room;
    }
    broken_ = true;
    return Sent::broken;
}

void Link::abort() {
    const std::lock_guard lock(sending_);
    broken_ = true;
    // A connected socket that is disconnected drops its queue and sends a reset. As a bare system
    // call: the thread sanitizer takes what connect() succeeds on for a new descriptor, and others
    // receive from this one meanwhile.
    sockaddr nobody{};
    nobody.sa_family = AF_UNSPEC;
    syscall(SYS_connect, descriptor_, &nobody, sizeof nobody);
    const linger at_once{1, 0};
    setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    shutdown(descriptor_, SHUT_RDWR);
}

void Link::finish() {
    const std::lock_guard lock(sending_);
    broken_ = true;
    shutdown(descriptor_, SHUT_RDWR);
}

}  // namespace vexo::session
