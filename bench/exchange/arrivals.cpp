// From the controller's send of a package to the package in the application's hands. The reader
// spins, so that what is seen is when the package became readable, and not how a reader is woken.
#include <sys/socket.h>

#include <memory>
#include <thread>

#include "bench/bare.h"
#include "bench/exchange/pairs.h"
#include "bench/session.h"

namespace bench {

namespace {

constexpr size_t kPackagesPerRound = 200;
constexpr size_t kSkipped = 10;  // at the start of a round, among them what the last one left over
constexpr int kSilentHandles = 9;

// Reads packages by `read` until a round is complete.
template <typename Read>
Round watch(Read read) {
    Round round;
    uint8_t package[kUsualPackage] = {};
    uint64_t last = 0;
    for (size_t seen = 0; seen < kSkipped + kPackagesPerRound;) {
        read(package, sizeof package);
        const auto counter = load<uint64_t>(package + kPackageCounter);
        if (counter == last) {
            continue;
        }
        if (++seen > kSkipped) {
            const int64_t sent = load<int64_t>(package + kPackageTime);
            round.values.push_back(static_cast<double>(now_ns() - sent) / 1000);
            round.missed += counter - last - 1;
        }
        last = counter;
    }
    return round;
}

// The receive thread runs beside the controller: the other processor is the reader's.
Measure watch_session(uint32_t handle) {
    return [=, started = false]() mutable {
        start_output(handle);
        if (!started) {
            pin(Place::controller, th_receive);
            started = true;
        }
        const Round round = watch([&](uint8_t* package, size_t size) {
            vexo_ouput_data_receive(handle, 0, package, static_cast<uint32_t>(size));
        });
        require(vexo_output_pause(handle, 0) == 0, "no pause");
        return round;
    };
}

PeerOptions streaming(int number, bool raw) {
    return {.number = number, .raw = raw, .package_size = kUsualPackage};
}

Prepare library_alone(bool raw) {
    return [raw, number = next_peer_number()]() -> Measure {
        pin(Place::application);
        const Peer& peer = start_peer(streaming(number, raw));
        return watch_session(open_session(peer, raw ? 3 : 2));
    };
}

// The nine others stream, as far as the library knows, but nothing comes.
Prepare library_among_silent(bool raw) {
    return [raw, number = next_peer_number(), silent_number = next_peer_number()]() -> Measure {
        pin(Place::application);
        const Peer& silent = start_peer({.number = silent_number});
        const Peer& peer = start_peer(streaming(number, raw));
        std::vector<uint32_t> handles;
        for (int i = 0; i < kSilentHandles; ++i) {
            handles.push_back(open_session(silent, 2));
        }
        const uint32_t handle = open_session(peer, raw ? 3 : 2);
        for (const uint32_t other : handles) {
            start_output(other);
        }
        return watch_session(handle);
    };
}

int open_stream(const Peer& peer) {
    return peer.options.raw ? open_link(peer.host_interface())
                            : connect_bare(peer.address(), kReceivePort);
}

// Blocks in the receive call, and copies once.
void receive_bare(int fd, size_t header, BareStore& store) {
    pin(Place::controller);
    uint8_t received[2048];
    for (;;) {
        const ssize_t got = recv(fd, received, header + kUsualPackage, 0);
        if (got == static_cast<ssize_t>(header + kUsualPackage)) {
            store.put(received + header, kUsualPackage);
        }
    }
}

Prepare bare_alone(bool raw) {
    return [raw, number = next_peer_number()]() -> Measure {
        pin(Place::application);
        const Peer& peer = start_peer(streaming(number, raw));
        const int stream = open_stream(peer);
        const int io = connect_bare(peer.address(), kIoPort);
        auto store = std::make_shared<BareStore>();
        std::thread([=] { receive_bare(stream, raw ? kFrameHeader : 0, *store); }).detach();
        return [=] {
            ask(io, message('S', {}));
            const Round round =
                watch([&](uint8_t* package, size_t size) { store->get(package, size); });
            ask(io, message('P', {}));
            return round;
        };
    };
}

}  // namespace

std::vector<Pair> arrival_pairs() {
    std::vector<Pair> pairs;
    for (const bool raw : {false, true}) {
        const std::string path = raw ? " raw" : " over TCP";
        const std::string file = raw ? "raw" : "tcp";
        pairs.push_back({"package sent to package readable," + path,
                         "µs",
                         library_alone(raw),
                         bare_alone(raw),
                         {{"p50", p50, 1.15}},
                         31,
                         "arrival_" + file + ".svg"});
        pairs.push_back(
            {"the same beside nine silent handles," + path,
             "µs",
             library_among_silent(raw),
             library_alone(raw),
             {{"p50", p50, 1.25}, {"missed", missed_percent, 0, Scale::difference, "%"}},
             31,
             "arrival_ten_" + file + ".svg"});
    }
    return pairs;
}

}  // namespace bench
