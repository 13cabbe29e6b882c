// Set-points: round trips over TCP, round trips and mere sends in frames.
#include <semaphore.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <thread>

#include "bench/bare.h"
#include "bench/exchange/pairs.h"
#include "bench/session.h"

namespace bench {

namespace {

constexpr int kCallsPerRound = 2000;
constexpr int64_t kPeriod = 50'000;  // ns between calls; a controller is called at a steady rate
constexpr int64_t kLate = 4'000'000;
constexpr double kValues[6] = {0, 0.1, 0.2, 0.3, 0.4, 0.5};

// After a reply that came too late every call would find the reply of the one before: it is waited
// for and thrown away. Both sides do so, outside of what is timed.
template <typename Call>
void call_and_resynchronise(int socket, Call call) {
    const int64_t before = now_ns();
    call();
    if (now_ns() - before > kLate) {
        usleep(20'000);
        uint8_t late[1400];
        recv(socket, late, sizeof late, MSG_DONTWAIT);
    }
}

void send_set_point(uint32_t handle) {
    require(cvexo_servoj(handle, 0, 0.002, 0, nullptr, 6, kValues) == 0, "set-point refused");
}

Prepare library_tcp(int form) {
    return [form, number = next_peer_number()]() -> Measure {
        pin(Place::application);
        const Peer& peer = start_peer({number});
        const uint32_t handle = open_session(peer, form);
        const int socket = control_socket(handle);
        return [=] {
            return time_calls(kCallsPerRound, kPeriod, [=] {
                call_and_resynchronise(socket, [=] { send_set_point(handle); });
            });
        };
    };
}

// Select, send, select, receive: the same system calls, the same bytes.
void bare_round_trip(int fd, Bytes& request, uint32_t& sequence) {
    uint8_t reply[1400];
    store(&request[kSetPointSequence], ++sequence);
    if (ready_to_send(fd)) {
        send(fd, request.data(), request.size(), MSG_NOSIGNAL);
    }
    if (ready_to_receive(fd)) {
        recv(fd, reply, sizeof reply, 0);
    }
}

Prepare bare_tcp(int form) {
    return [form, number = next_peer_number()]() -> Measure {
        pin(Place::application);
        const Peer& peer = start_peer({number});
        const int fd = connect_bare(peer.address(), kControlPort);
        return [=, request = set_point(form), sequence = 0u]() mutable {
            return time_calls(kCallsPerRound, kPeriod, [&] {
                call_and_resynchronise(fd, [&] { bare_round_trip(fd, request, sequence); });
            });
        };
    };
}

// The receiving thread shares the caller's processor, on both sides: as the caller spins between
// its calls, each of them takes in the reply of the one before, so that the whole way is in the
// figure.
Prepare library_raw(bool acknowledged) {
    return [acknowledged, number = next_peer_number()]() -> Measure {
        pin(Place::application);
        const Peer& peer =
            start_peer(PeerOptions{.number = number, .raw = true, .acknowledges = acknowledged});
        const uint32_t handle = open_session(peer, 3, acknowledged ? 0 : 1);
        start_output(handle);
        return [=] { return time_calls(kCallsPerRound, kPeriod, [=] { send_set_point(handle); }); };
    };
}

// A thread that receives the replies and hands each over.
struct BareReplies {
    int link;
    sem_t ready;
    uint8_t reply[2048];

    explicit BareReplies(int fd) : link(fd) {
        sem_init(&ready, 0, 1);
        std::thread([this] { receive(); }).detach();
    }
    void receive() {
        uint8_t received[2048];
        for (;;) {
            const ssize_t got = recv(link, received, sizeof received, 0);
            if (got > static_cast<ssize_t>(kFrameHeader) && received[kFrameCode] == kServoCode) {
                std::memcpy(reply, received + kFrameHeader,
                            static_cast<size_t>(got) - kFrameHeader);
                sem_post(&ready);
            }
        }
    }
};

Prepare bare_raw(bool acknowledged) {
    return [acknowledged, number = next_peer_number()]() -> Measure {
        pin(Place::application);
        const Peer& peer =
            start_peer(PeerOptions{.number = number, .raw = true, .acknowledges = acknowledged});
        const int link = open_link(peer.host_interface());
        auto replies = acknowledged ? std::make_shared<BareReplies>(link) : nullptr;
        Bytes bytes = frame(peer.mac(), peer.host_mac(), kServoCode, set_point(2));
        return [=, sequence = 0u]() mutable {
            return time_calls(kCallsPerRound, kPeriod, [&] {
                store(&bytes[kFrameHeader + kSetPointSequence], ++sequence);
                send(link, bytes.data(), bytes.size(), 0);
                if (replies) {
                    sem_wait(&replies->ready);
                }
            });
        };
    };
}

}  // namespace

std::vector<Pair> servo_pairs() {
    return {
        {"cvexo_servoj over TCP, form 1",
         "µs",
         library_tcp(1),
         bare_tcp(1),
         {{"p50", p50, 1.05}, {"p99", p99, 1.10}},
         25,
         "servo_tcp_1.svg"},
        {"cvexo_servoj over TCP, form 2",
         "µs",
         library_tcp(2),
         bare_tcp(2),
         {{"p50", p50, 1.05}, {"p99", p99, 1.10}},
         25,
         "servo_tcp_2.svg"},
        {"cvexo_servoj raw, acknowledged",
         "µs",
         library_raw(true),
         bare_raw(true),
         {{"p50", p50, 1.10}, {"p99", p99, 1.15}},
         25,
         "servo_raw.svg"},
        {"cvexo_servoj raw, nack mode",
         "µs",
         library_raw(false),
         bare_raw(false),
         {{"p50", p50, 1.15}},
         25,
         "servo_nack.svg"},
    };
}

}  // namespace bench
