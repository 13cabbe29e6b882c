#include "client/received_stream.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <utility>

#include "base/racing_copy.h"
#include "log/report.h"
#include "net/error_description.h"
#include "net/raw_endpoint.h"
#include "wire/message.h"

namespace vexo {

void (*package_observer)(uint32_t handle, std::span<const uint8_t> package);

namespace {

constexpr size_t kFrameSize = 1440;
// So many frames at most are passed over at a stretch, so that one busy link cannot hold up the
// others.
constexpr int kFramesPerPass = 64;
// A link that brings many bad frames must not fill the log.
constexpr int kBadFrameLinesPerSecond = 10;

int64_t now_milliseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

}  // namespace

void ReceivedStream::serve(HandleState& handle, pollfd& polled) {
    if (shared(handle.dataspace()->streaming).load(std::memory_order_acquire) != kStarted) {
        if (!cleared_) {
            clear_store(handle.dataspace()->output_store, handle.store_sequence);
            cleared_ = true;
        }
        polled.fd = -1;
        return;
    }
    cleared_ = false;
    switch (shared(handle.dataspace()->link_mode).load(std::memory_order_relaxed)) {
        case kLinkTcp:
            serve_tcp(handle, polled);
            break;
        case kLinkRaw:
            serve_raw(handle, polled);
            break;
        default:
            polled.fd = -1;
    }
}

void ReceivedStream::serve_tcp(HandleState& handle, pollfd& polled) {
    const int socket = handle.dataspace()->receive_socket;
    const size_t length = shared(handle.dataspace()->output_length).load(std::memory_order_relaxed);
    wire::PackageStream& packages = handle.packages;
    if (socket != handle.packages_of) {
        handle.packages_of = socket;
        packages = {};
        lost_ = false;
    }
    if (polled.fd == socket && polled.revents != 0) {
        receive_bytes(socket, packages);
    }
    for (auto package = packages.next(length); !package.empty(); package = packages.next(length)) {
        show(handle, package, wire::message_length(package));
    }
    polled.fd = resting() || length == 0 ? -1 : socket;
}

void ReceivedStream::receive_bytes(int socket, wire::PackageStream& packages) {
    const std::span<uint8_t> room = packages.room();
    const ssize_t got = recv(socket, room.data(), room.size(), MSG_DONTWAIT);
    if (got > 0) {
        lost_ = false;
        packages.received(static_cast<size_t>(got));
        return;
    }
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    if (got < 0 && newly_lost()) {
        report({0, "socket_recv"}, "Receive failed - %s", describe_error(errno).text);
    }
    rest();
}

void ReceivedStream::serve_raw(HandleState& handle, pollfd& polled) {
    const int descriptor = raw_descriptor(handle.dataspace()->raw_socket);
    if (polled.fd == descriptor && (polled.revents != 0 || descriptor < 0)) {
        receive_frames(handle);
        if ((polled.revents & ~POLLIN) != 0) {
            rest();
        }
    }
    polled.fd = resting() ? -1 : descriptor;
}

// Takes in one frame of the controller. Mostly there is only one: to ask for the next costs a
// system call, and poll() tells it for all handles at once.
void ReceivedStream::receive_frames(HandleState& handle) {
    uint8_t frame[kFrameSize];
    for (int i = 0; i < kFramesPerPass; ++i) {
        const RawMessage message = raw_try_receive(handle.dataspace()->raw_socket, frame);
        if (message.nothing()) {
            return;
        }
        if (message.result < 0) {
            const bool freed = message.result == SOCKET_RAW_BAD_INSTANCE;
            if (freed ? newly_lost() : may_log()) {
                record({0, "receive_thread"}, "Error: raw_socket_recv: %ld", message.result);
            }
            if (freed) {
                return;
            }
            continue;
        }
        lost_ = false;
        if (message.sender == std::to_array(handle.dataspace()->controller_mac)) {
            take_frame(handle, message.code, message.payload);
            return;
        }
    }
}

// Both kinds begin with a length word of their own, which reaches no further than what was
// received. What is missing of it counts as zero: even an empty reply is one that somebody awaits.
void ReceivedStream::take_frame(HandleState& handle, uint8_t code,
                                std::span<const uint8_t> payload) {
    const size_t claimed = wire::message_length(payload);
    const auto brought = payload.first(std::min(claimed, payload.size()));
    switch (static_cast<wire::FrameCode>(code)) {
        case wire::FrameCode::output_package:
            show(handle, brought, claimed);
            break;
        case wire::FrameCode::set_point:
            store_claimed(handle.dataspace()->response, brought, claimed);
            sem_post(&handle.dataspace()->reply);
            break;
        default:
            break;
    }
}

void ReceivedStream::show(HandleState& handle, std::span<const uint8_t> package, size_t claimed) {
    show_package(handle.dataspace()->output_store, handle.store_sequence, package, claimed);
    if (package_observer != nullptr) {
        package_observer(handle_, package);
    }
}

void ReceivedStream::rest() {
    rest_until_ = now_milliseconds() + kWaitMilliseconds;
}

bool ReceivedStream::resting() const {
    return rest_until_ != 0 && now_milliseconds() < rest_until_;
}

bool ReceivedStream::newly_lost() {
    return !std::exchange(lost_, true);
}

bool ReceivedStream::may_log() {
    const int64_t second = now_milliseconds() / 1000;
    if (second != line_second_) {
        line_second_ = second;
        lines_ = 0;
    }
    return ++lines_ <= kBadFrameLinesPerSecond;
}

}  // namespace vexo
