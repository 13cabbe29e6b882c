#include "soak/probe.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>

#include "client/received_stream.h"
#include "client/vexo.h"

extern "C" int __real_poll(pollfd* polled, nfds_t count, int timeout);
extern "C" ssize_t __real_recv(int fd, void* buffer, size_t size, int flags);

namespace soak {

namespace {

std::array<uint32_t, kHandles> handles;
std::array<Arrivals, kHandles> all_arrivals;
const PeerRecord* peer;

// The receive thread's own state.
struct {
    Nanoseconds waiting_since;
    Nanoseconds busy_before;  // its processor time when it was woken the time before
    Nanoseconds busy_woken;   // and when it was woken last
    Nanoseconds in_kernel;    // when what was received last came
    std::array<bool, 1024> stamped;
} thread;

bool on_receive_thread() {
    return peer != nullptr && recv_thread_init_ok != 0 &&
           pthread_equal(pthread_self(), th_receive) != 0;
}

Nanoseconds busy_time() {
    return time_of(CLOCK_THREAD_CPUTIME_ID);
}

// Has the kernel stamp what comes on this socket.
void ask_for_stamps(int fd) {
    const auto index = static_cast<size_t>(fd);
    if (index < thread.stamped.size() && !thread.stamped[index]) {
        thread.stamped[index] = true;
        const int on = 1;
        setsockopt(fd, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
    }
}

void take_stamp(msghdr& message) {
    thread.in_kernel = now();
    for (cmsghdr* c = CMSG_FIRSTHDR(&message); c != nullptr; c = CMSG_NXTHDR(&message, c)) {
        if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SO_TIMESTAMPNS) {
            timespec stamp{};
            std::memcpy(&stamp, CMSG_DATA(c), sizeof stamp);
            thread.in_kernel = stamp.tv_sec * kSecond + stamp.tv_nsec;
        }
    }
}

ssize_t receive_with_stamp(int fd, void* buffer, size_t size, int flags) {
    ask_for_stamps(fd);
    iovec piece{buffer, size};
    alignas(cmsghdr) char control[256];
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t got = recvmsg(fd, &message, flags);
    if (got > 0) {
        take_stamp(message);
    }
    return got;
}

void count(std::atomic<uint64_t>& counter, uint64_t more = 1) {
    counter.store(counter.load(std::memory_order_relaxed) + more, std::memory_order_relaxed);
}

bool as_sent(size_t controller, const Package& content, const uint8_t* package, size_t size) {
    const Sent& sent = peer->sent[controller][content.counter % kRemembered];
    return content.controller == controller &&
           sent.counter.load(std::memory_order_acquire) == content.counter &&
           sent.hash.load(std::memory_order_relaxed) == hash(package, size);
}

void count_order(Arrivals& arrivals, uint32_t counter) {
    const uint32_t newest = arrivals.newest.load(std::memory_order_relaxed);
    if (newest == 0) {
        arrivals.first = counter;
    } else if (counter == newest) {
        count(arrivals.doubled);
    } else if (counter < newest) {
        count(arrivals.out_of_order);
    } else {
        count(arrivals.lost, counter - newest - 1);
    }
}

void remember(Arrivals& arrivals, const Package& content) {
    Stored& stored = arrivals.packages[content.counter % kRemembered];
    stored.controller_time = content.controller_time;
    stored.in_kernel = thread.in_kernel;
    stored.at = now();
    // Whatever it did before it began to wait was done before the package came.
    const bool waited = thread.waiting_since <= thread.in_kernel;
    const Nanoseconds busy = busy_time() - (waited ? thread.busy_woken : thread.busy_before);
    stored.busy = std::min(busy, stored.at - stored.in_kernel);
    stored.counter.store(content.counter, std::memory_order_release);
}

void note(uint32_t handle, std::span<const uint8_t> bytes) {
    const auto found = std::find(handles.begin(), handles.end(), handle);
    if (peer == nullptr || found == handles.end() ||
        bytes.size() < Package::kHeader + sizeof(Package)) {
        return;
    }
    const auto controller = static_cast<size_t>(found - handles.begin());
    Arrivals& arrivals = all_arrivals[controller];
    const Package content = Package::read(bytes.data());
    count(arrivals.stored);
    if (!as_sent(controller, content, bytes.data(), bytes.size())) {
        count(arrivals.altered);
        return;
    }
    count_order(arrivals, content.counter);
    remember(arrivals, content);
    arrivals.newest.store(content.counter, std::memory_order_release);
}

}  // namespace

void watch(const std::array<uint32_t, kHandles>& of, const PeerRecord& record) {
    handles = of;
    peer = &record;
    vexo::package_observer = note;
}

const Arrivals& arrivals(size_t controller) {
    return all_arrivals[controller];
}

}  // namespace soak

using namespace soak;

extern "C" int __wrap_poll(pollfd* polled, nfds_t count, int timeout) {
    if (!on_receive_thread()) {
        return __real_poll(polled, count, timeout);
    }
    thread.waiting_since = now();
    const int result = __real_poll(polled, count, timeout);
    thread.busy_before = thread.busy_woken;
    thread.busy_woken = busy_time();
    return result;
}

extern "C" ssize_t __wrap_recv(int fd, void* buffer, size_t size, int flags) {
    return on_receive_thread() ? receive_with_stamp(fd, buffer, size, flags)
                               : __real_recv(fd, buffer, size, flags);
}
