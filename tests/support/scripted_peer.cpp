#include "tests/support/scripted_peer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <sstream>

#include "tests/support/process.h"

namespace test {

Bytes bytes(const std::string& hex) {
    std::istringstream in(hex);
    Bytes result;
    unsigned value = 0;
    while (in >> std::hex >> value) {
        result.push_back(static_cast<uint8_t>(value));
    }
    return result;
}

std::string hex(const Bytes& data) {
    std::string text;
    char one[4];
    for (const uint8_t byte : data) {
        std::snprintf(one, sizeof one, "%02X ", byte);
        text += one;
    }
    return text;
}

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

ScriptedPeer::ScriptedPeer(const std::string& address, uint16_t port)
    : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), changed_(eventfd(0, EFD_CLOEXEC)) {
    const int on = 1;
    setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    inet_pton(AF_INET, address.c_str(), &local.sin_addr);
    if (bind(listener_, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0 ||
        listen(listener_, 4) != 0) {
        ADD_FAILURE() << "no peer on " << address << ':' << port << ": " << std::strerror(errno);
    }
    thread_ = std::thread([this] { run(); });
}

ScriptedPeer::~ScriptedPeer() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    eventfd_write(changed_, 1);
    thread_.join();
    close(changed_);
    close(listener_);
    EXPECT_TRUE(steps_.empty()) << steps_.size() << " steps of the script were not used, first: "
                                << hex(steps_.front().request);
}

void ScriptedPeer::expect(const Bytes& request, const Bytes& reply, After after) {
    Step step;
    step.request = request;
    if (!reply.empty()) {
        step.reply.push_back({reply, {}});
    }
    step.after = after;
    expect(std::move(step));
}

void ScriptedPeer::expect(Step step) {
    {
        const std::lock_guard lock(mutex_);
        steps_.push_back(std::move(step));
    }
    eventfd_write(changed_, 1);
}

bool ScriptedPeer::done(std::chrono::milliseconds limit) {
    return wait_until(
        [this] {
            const std::lock_guard lock(mutex_);
            return steps_.empty() && !playing_;
        },
        limit);
}

int ScriptedPeer::connections() const {
    const std::lock_guard lock(mutex_);
    return connections_;
}

bool ScriptedPeer::stopping() {
    const std::lock_guard lock(mutex_);
    return stopping_;
}

bool ScriptedPeer::wait(int descriptor) {
    pollfd ready[2] = {{descriptor, POLLIN, 0}, {changed_, POLLIN, 0}};
    poll(ready, 2, -1);
    if (ready[1].revents != 0) {
        eventfd_t count = 0;
        eventfd_read(changed_, &count);
    }
    return ready[0].revents != 0;
}

void ScriptedPeer::run() {
    while (!stopping()) {
        if (!wait(listener_)) {
            continue;
        }
        const int connection = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        {
            const std::lock_guard lock(mutex_);
            ++connections_;
        }
        serve(connection);
        close(connection);
    }
}

bool ScriptedPeer::next(Step& step) {
    const std::lock_guard lock(mutex_);
    playing_ = !steps_.empty();
    if (playing_) {
        step = std::move(steps_.front());
        steps_.pop_front();
    }
    return playing_;
}

void ScriptedPeer::serve(int connection) {
    const int on = 1;
    setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    while (!stopping()) {
        Step step;
        while (next(step)) {
            if (!play(connection, step)) {
                const std::lock_guard lock(mutex_);
                playing_ = false;
                return;
            }
        }
        if (wait(connection) && !quiet(connection)) {
            return;
        }
    }
}

// Out of steps, whatever comes is left over, unless a step has been added meanwhile. Returns
// whether the connection can go on.
bool ScriptedPeer::quiet(int connection) {
    const std::lock_guard lock(mutex_);
    if (!steps_.empty()) {
        return true;
    }
    uint8_t rest[256];
    const ssize_t got = recv(connection, rest, sizeof rest, MSG_DONTWAIT);
    if (got > 0) {
        ADD_FAILURE() << "left over: " << hex(Bytes(rest, rest + got));
    }
    return got < 0 && errno == EAGAIN;
}

bool ScriptedPeer::play(int connection, const Step& step) {
    Bytes arrived;
    const bool complete = receive(connection, step.request.size(), arrived);
    EXPECT_EQ(hex(arrived), hex(step.request));
    if (!complete) {
        return false;
    }
    for (const Piece& piece : step.reply) {
        std::this_thread::sleep_for(piece.pause_before);
        EXPECT_EQ(send(connection, piece.data.data(), piece.data.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(piece.data.size()));
    }
    if (step.after == After::reset) {
        const linger hard{1, 0};
        setsockopt(connection, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    }
    return step.after == After::keep;
}

bool ScriptedPeer::receive(int connection, size_t count, Bytes& into) {
    while (into.size() < count) {
        if (!wait(connection)) {
            if (stopping()) {
                return false;
            }
            continue;
        }
        uint8_t chunk[4096];
        const size_t wanted = std::min(sizeof chunk, count - into.size());
        const ssize_t got = recv(connection, chunk, wanted, 0);
        if (got <= 0) {
            return false;
        }
        into.insert(into.end(), chunk, chunk + got);
    }
    return true;
}

}  // namespace test
