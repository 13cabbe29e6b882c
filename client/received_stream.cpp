#include "client/received_stream.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "client/message.h"
#include "base/racing_copy.h"
#include "base/error_text.h"
#include "net/raw_internal.h"

namespace vexo {

namespace {

constexpr size_t kFrameSize = 1440;
constexpr size_t kEthernetSource = 6;  // where a frame has its source address
constexpr uint8_t kOutputFrame = 144;
constexpr uint8_t kReplyFrame = 146;
constexpr long kNothingReceived = -101;
// So many frames at most are passed over at a stretch, so that one busy link cannot hold up the
// others.
constexpr int kFramesPerPass = 64;
// A link that brings good and bad frames by turns must not fill the log.
constexpr int kFailureLinesPerSecond = 10;

int64_t now_milliseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

}  // namespace

void ReceivedStream::serve(const Registration& handle, pollfd& polled) {
    if (shared(handle->streaming).load(std::memory_order_acquire) != kStarted) {
        if (!cleared_) {
            clear_store(*handle, *handle.store_sequence);
            cleared_ = true;
        }
        polled.fd = -1;
        return;
    }
    cleared_ = false;
    switch (shared(handle->link_mode).load(std::memory_order_relaxed)) {
        case kLinkTcp:
            serve_tcp(handle, polled);
            break;
        case kLinkRaw:
            serve_raw(handle, polled);
            break;
        default:
            polled.fd = -1;
    }
    polled.events = POLLIN;
}

void ReceivedStream::serve_tcp(const Registration& handle, pollfd& polled) {
    const int socket = handle->receive_socket;
    const size_t length = shared(handle->output_length).load(std::memory_order_relaxed);
    if (socket != socket_) {
        socket_ = socket;
        unpacker_ = {};
        last_failure_ = 0;
    }
    if (polled.fd == socket && polled.revents != 0) {
        receive_bytes(socket, length);
    }
    while (const size_t size = unpacker_.next(length)) {
        show_package(*handle, *handle.store_sequence, unpacker_.package(), size);
    }
    polled.fd = resting() || unpacker_.wanted(length) == 0 ? -1 : socket;
}

void ReceivedStream::receive_bytes(int socket, size_t length) {
    const ssize_t got = recv(socket, unpacker_.room(), unpacker_.wanted(length), MSG_DONTWAIT);
    if (got > 0) {
        last_failure_ = 0;
        unpacker_.received(static_cast<size_t>(got));
        return;
    }
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    if (got < 0 && worth_a_line(errno)) {
        report({0, "socket_recv"}, "Receive failed - %s", ErrorText(errno).text);
    }
    rest();
}

void ReceivedStream::serve_raw(const Registration& handle, pollfd& polled) {
    const int descriptor = raw_descriptor(handle->raw_socket);
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
void ReceivedStream::receive_frames(const Registration& handle) {
    uint8_t frame[kFrameSize];
    for (int i = 0; i < kFramesPerPass; ++i) {
        uint8_t code = 0;
        uint8_t* position = frame;
        const long result = raw_try_receive(handle->raw_socket, &code, &position, sizeof frame);
        if (result == kNothingReceived) {
            return;
        }
        if (result < 0) {
            if (worth_a_line(static_cast<int>(result))) {
                record({0, "receive_thread"}, "Error: raw_socket_recv: %ld", result);
            }
            if (raw_descriptor(handle->raw_socket) < 0) {
                return;
            }
            continue;
        }
        last_failure_ = 0;
        if (std::memcmp(frame + kEthernetSource, handle->controller_mac, kMacSize) == 0) {
            take_frame(handle, code, position, static_cast<size_t>(result));
            return;
        }
    }
}

// Both kinds begin with a length word of their own, which reaches no further than what was
// received. What is missing of it counts as zero: even an empty reply is one that somebody awaits.
void ReceivedStream::take_frame(const Registration& handle, uint8_t code, const uint8_t* payload,
                                size_t received) {
    uint8_t length_word[2] = {};
    std::memcpy(length_word, payload, std::min(received, sizeof length_word));
    const size_t size = std::min<size_t>(read_u16(length_word), received);
    if (code == kOutputFrame) {
        show_package(*handle, *handle.store_sequence, payload, size);
    } else if (code == kReplyFrame) {
        racing_copy(handle->response, payload, size);
        sem_post(&handle->reply);
    }
}

void ReceivedStream::rest() {
    rest_until_ = now_milliseconds() + kWaitMilliseconds;
}

bool ReceivedStream::resting() const {
    return rest_until_ != 0 && now_milliseconds() < rest_until_;
}

bool ReceivedStream::worth_a_line(int failure) {
    if (failure == last_failure_) {
        return false;
    }
    last_failure_ = failure;
    const int64_t second = now_milliseconds() / 1000;
    if (second != line_second_) {
        line_second_ = second;
        lines_ = 0;
    }
    return ++lines_ <= kFailureLinesPerSecond;
}

}  // namespace vexo
