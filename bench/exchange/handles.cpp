// What a package costs the receive thread, by how many handles there are and what else is on the
// link.
#include <signal.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <ctime>
#include <memory>
#include <thread>

#include "bench/bare.h"
#include "bench/exchange/pairs.h"
#include "bench/session.h"

namespace bench {

namespace {

constexpr useconds_t kSettleMicroseconds = 30'000;
constexpr useconds_t kRoundMicroseconds = 300'000;
constexpr Mac kForeignStation = {0x02, 0, 0, 0, 9, 9};

struct Setting {
    bool raw;
    int handles;
    size_t size;
    int foreign_per_millisecond = 0;
};

// ---- Stations on one link, which stream at 1 kHz each

struct Switch {
    std::atomic<bool> on{false};
    std::atomic<uint64_t> packages{0};
};

Switch& shared_switch() {
    void* const memory =
        mmap(nullptr, sizeof(Switch), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    require(memory != MAP_FAILED, "no shared memory");
    return *new (memory) Switch;
}

void sleep_until(timespec& tick) {
    tick.tv_nsec += 1'000'000;
    if (tick.tv_nsec >= 1'000'000'000) {
        tick.tv_nsec -= 1'000'000'000;
        ++tick.tv_sec;
    }
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &tick, nullptr);
}

[[noreturn]] void send_frames(int link, const std::vector<Bytes>& frames,
                              const std::vector<Bytes>& foreign, Switch& state) {
    timespec tick{};
    clock_gettime(CLOCK_MONOTONIC, &tick);
    for (;;) {
        sleep_until(tick);
        if (!state.on) {
            continue;
        }
        for (const auto* some : {&foreign, &frames}) {
            for (const Bytes& frame : *some) {
                send(link, frame.data(), frame.size(), 0);
            }
        }
        state.packages += frames.size();
    }
}

void start_stations(const std::vector<Peer>& peers, const Setting& setting, Switch& state) {
    const pid_t process = fork();
    require(process >= 0, "no process");
    if (process != 0) {
        return;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    pin(Place::controller);
    const Bytes package = output_package(setting.size);
    std::vector<Bytes> frames;
    for (const Peer& peer : peers) {
        frames.push_back(frame(peers[0].host_mac(), peer.mac(), kOutputCode, package));
    }
    const std::vector<Bytes> foreign(
        static_cast<size_t>(setting.foreign_per_millisecond),
        frame(peers[0].host_mac(), kForeignStation, kOutputCode, package));
    send_frames(open_link("robot" + std::to_string(peers[0].options.number)), frames, foreign,
                state);
}

// Controllers of which the first one has the link that all of them send on. They are told a package
// size only afterwards, so that they do not stream themselves.
std::vector<Peer> peers_on_one_link(const Setting& setting, int first_number) {
    std::vector<Peer> peers;
    for (int i = 0; i < setting.handles; ++i) {
        peers.push_back(start_peer({.number = first_number + i, .raw = i == 0}));
        peers.back().options.package_size = setting.size;
    }
    return peers;
}

// Over TCP one controller serves all handles.
int next_numbers(const Setting& setting) {
    const int first = next_peer_number();
    for (int i = 1; setting.raw && i < setting.handles; ++i) {
        next_peer_number();
    }
    return first;
}

// ---- Rounds

// Microseconds of a thread's time for each package.
template <typename Packages>
Round cost_of_package(pthread_t thread, Packages packages) {
    usleep(kSettleMicroseconds);
    const double before = packages();
    const int64_t used_before = cpu_time_ns(thread);
    usleep(kRoundMicroseconds);
    const auto used = static_cast<double>(cpu_time_ns(thread) - used_before);
    return {{used / 1000 / (packages() - before)}, 0};
}

double streamed(const Switch& state) {
    return static_cast<double>(state.packages);
}

// Of controllers that stream by themselves.
double streamed_by_clock(int handles) {
    return static_cast<double>(now_ns()) / 1e6 * handles;
}

void switch_outputs(const std::vector<uint32_t>& handles, bool on) {
    for (const uint32_t handle : handles) {
        require((on ? vexo_output_start(handle, 0) : vexo_output_pause(handle, 0)) == 0,
                "cannot switch the output");
    }
}

Measure library_rounds(const std::vector<uint32_t>& handles, Switch& state, bool raw) {
    return [=, &state] {
        switch_outputs(handles, true);
        state.on = true;
        const Round round = cost_of_package(th_receive, [&] {
            return raw ? streamed(state) : streamed_by_clock(static_cast<int>(handles.size()));
        });
        state.on = false;
        switch_outputs(handles, false);
        return round;
    };
}

Prepare library_side(const Setting& setting) {
    return [setting, number = next_numbers(setting)]() -> Measure {
        pin(Place::application);
        std::vector<uint32_t> handles;
        Switch& state = shared_switch();
        if (setting.raw) {
            const std::vector<Peer> peers = peers_on_one_link(setting, number);
            start_stations(peers, setting, state);
            for (const Peer& peer : peers) {
                handles.push_back(open_session(peer, 3, 0, peers[0].host_interface()));
            }
        } else {
            const Peer& peer = start_peer({.number = number, .package_size = setting.size});
            for (int i = 0; i < setting.handles; ++i) {
                handles.push_back(open_session(peer, 2));
            }
        }
        return library_rounds(handles, state, setting.raw);
    };
}

// One socket gets the frames of all stations; a byte of the address tells them apart.
void receive_frames(int link, size_t size) {
    static BareStore stores[256];
    constexpr size_t kStation = 11;
    uint8_t received[2048];
    for (;;) {
        const ssize_t got = recv(link, received, sizeof received, 0);
        if (got == static_cast<ssize_t>(kFrameHeader + size)) {
            stores[received[kStation]].put(received + kFrameHeader, size);
        }
    }
}

void receive_streams(const std::vector<int>& streams, size_t size) {
    static BareStore stores[16];
    const int set = epoll_create1(0);
    for (size_t i = 0; i < streams.size(); ++i) {
        epoll_event event{.events = EPOLLIN, .data = {.u64 = i}};
        epoll_ctl(set, EPOLL_CTL_ADD, streams[i], &event);
    }
    for (;;) {
        epoll_event events[16];
        const int count = epoll_wait(set, events, 16, -1);
        for (int i = 0; i < count; ++i) {
            uint8_t package[kLargestPackage];
            const size_t stream = events[i].data.u64;
            if (recv(streams[stream], package, size, 0) == static_cast<ssize_t>(size)) {
                stores[stream].put(package, size);
            }
        }
    }
}

Measure bare_frames(const Setting& setting, int number) {
    const std::vector<Peer> peers = peers_on_one_link(setting, number);
    Switch& state = shared_switch();
    start_stations(peers, setting, state);
    auto reader = std::make_shared<std::thread>(receive_frames,
                                                open_link(peers[0].host_interface()), setting.size);
    return [reader, &state] {
        state.on = true;
        const Round round =
            cost_of_package(reader->native_handle(), [&] { return streamed(state); });
        state.on = false;
        return round;
    };
}

Measure bare_streams(const Setting& setting, int number) {
    const Peer& peer = start_peer({.number = number, .package_size = setting.size});
    std::vector<int> streams;
    for (int i = 0; i < setting.handles; ++i) {
        streams.push_back(connect_bare(peer.address(), kReceivePort));
    }
    const int io = connect_bare(peer.address(), kIoPort);
    auto reader = std::make_shared<std::thread>(receive_streams, streams, setting.size);
    return [=] {
        ask(io, message('S', {}));
        const Round round = cost_of_package(reader->native_handle(),
                                            [=] { return streamed_by_clock(setting.handles); });
        ask(io, message('P', {}));
        return round;
    };
}

Prepare bare_side(const Setting& setting) {
    return [setting, number = next_numbers(setting)]() -> Measure {
        pin(Place::application);
        return setting.raw ? bare_frames(setting, number) : bare_streams(setting, number);
    };
}

std::string named(const char* what, const Setting& setting) {
    return std::string(what) + ", " + std::to_string(setting.handles) +
           (setting.handles == 1 ? " handle, " : " handles, ") + std::to_string(setting.size) +
           (setting.raw ? " bytes, raw" : " bytes, over TCP");
}

}  // namespace

std::vector<Pair> handle_pairs() {
    constexpr size_t kSmall = 100;
    constexpr size_t kLarge = 1396;  // 29 rows
    std::vector<Pair> pairs;
    const auto add = [&pairs](const std::string& what, Prepare library, Prepare limit, double bound,
                              int rounds) {
        pairs.push_back(
            {what, "µs", std::move(library), std::move(limit), {{"CPU time", p50, bound}}, rounds});
    };
    for (const bool raw : {false, true}) {
        for (const size_t size : {kSmall, kLarge}) {
            for (const int handles : {1, 2, 4, 8}) {
                const Setting setting{raw, handles, size};
                add(named("a package", setting), library_side(setting), bare_side(setting),
                    raw ? 1.75 : 1.5, 5);
            }
            const Setting eight{raw, 8, size};
            add(named("a package beside that of 1 handle", eight), library_side(eight),
                library_side({raw, 1, size}), 1.2, 9);
        }
    }
    const Setting alone{true, 1, kSmall};
    add("a raw package beside 20 kHz of other stations'", library_side({true, 1, kSmall, 20}),
        library_side(alone), 1.1, 9);
    return pairs;
}

}  // namespace bench
