// CPU time of the receive thread.
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <thread>

#include "bench/bare.h"
#include "bench/exchange/pairs.h"
#include "bench/session.h"

namespace bench {

namespace {

constexpr int kHandles = 10;
constexpr useconds_t kRoundMicroseconds = 500'000;

// Percent of a processor that a thread uses during a round.
Round use_of_processor(pthread_t thread) {
    const int64_t begin = now_ns();
    const int64_t used_before = cpu_time_ns(thread);
    usleep(kRoundMicroseconds);
    const auto used = static_cast<double>(cpu_time_ns(thread) - used_before);
    return {{100 * used / static_cast<double>(now_ns() - begin)}, 0};
}

PeerOptions streaming(int number) {
    return {.number = number, .package_size = kUsualPackage};
}

Prepare library_load(bool stream) {
    return [stream, number = next_peer_number()]() -> Measure {
        pin(Place::application);
        const Peer& peer = start_peer(streaming(number));
        std::vector<uint32_t> handles;
        for (int i = 0; i < kHandles; ++i) {
            handles.push_back(open_session(peer, 2));
        }
        for (const uint32_t handle : handles) {
            start_output(handle);
        }
        for (const uint32_t handle : handles) {
            require(vexo_output_pause(handle, 0) == 0, "no pause");
        }
        return [=] {
            for (const uint32_t handle : handles) {
                require(!stream || vexo_output_start(handle, 0) == 0, "no output");
            }
            usleep(20'000);
            const Round round = use_of_processor(th_receive);
            for (const uint32_t handle : handles) {
                require(!stream || vexo_output_pause(handle, 0) == 0, "no pause");
            }
            return round;
        };
    };
}

// Reads the same streams with one epoll, and copies each package once.
void receive_bare(std::vector<int> streams) {
    const int set = epoll_create1(0);
    for (const int fd : streams) {
        epoll_event event{.events = EPOLLIN, .data = {.fd = fd}};
        epoll_ctl(set, EPOLL_CTL_ADD, fd, &event);
    }
    static BareStore stores[1024];
    for (;;) {
        epoll_event events[kHandles];
        const int count = epoll_wait(set, events, kHandles, -1);
        for (int i = 0; i < count; ++i) {
            uint8_t package[kUsualPackage];
            if (recv(events[i].data.fd, package, sizeof package, 0) == sizeof package) {
                stores[events[i].data.fd].put(package, sizeof package);
            }
        }
    }
}

Prepare bare_load() {
    return [number = next_peer_number()]() -> Measure {
        pin(Place::application);
        const Peer& peer = start_peer(streaming(number));
        std::vector<int> streams;
        for (int i = 0; i < kHandles; ++i) {
            streams.push_back(connect_bare(peer.address(), kReceivePort));
        }
        const int io = connect_bare(peer.address(), kIoPort);
        auto reader = std::make_shared<std::thread>(receive_bare, streams);
        return [=] {
            ask(io, message('S', {}));
            usleep(20'000);
            const Round round = use_of_processor(reader->native_handle());
            ask(io, message('P', {}));
            return round;
        };
    };
}

Prepare nothing() {
    return []() -> Measure { return [] { return Round{{0}, 0}; }; };
}

}  // namespace

std::vector<Pair> load_pairs() {
    return {
        {"receive thread, ten handles at 1 kHz",
         "% CPU",
         library_load(true),
         bare_load(),
         {{"CPU time", p50, 1.25}},
         9},
        {"receive thread, nothing streaming",
         "% CPU",
         library_load(false),
         nothing(),
         {{"CPU time", p50, 1.0, Scale::difference}},
         5},
    };
}

}  // namespace bench
