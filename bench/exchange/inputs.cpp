// Input packages: sends without a reply.
#include <sys/socket.h>

#include "bench/bare.h"
#include "bench/exchange/pairs.h"
#include "bench/session.h"

namespace bench {

namespace {

constexpr int kCallsPerRound = 2000;
constexpr int64_t kPeriod = 50'000;
constexpr double kValues[6] = {0, 0.1, 0.2, 0.3, 0.4, 0.5};

Prepare library_input(bool raw) {
    return [raw, number = next_peer_number()]() -> Measure {
        pin(Place::application);
        const Peer& peer = start_peer({.number = number, .raw = raw});
        const uint32_t handle = open_session(peer, raw ? 3 : 2);
        return [=] {
            return time_calls(kCallsPerRound, kPeriod, [=] {
                require(vexo_input_data_send(handle, 1, kValues) == 0, "input not sent");
            });
        };
    };
}

Prepare bare_input_tcp() {
    return [number = next_peer_number()]() -> Measure {
        pin(Place::application);
        const Peer& peer = start_peer({.number = number});
        const int fd = connect_bare(peer.address(), kIoPort);
        return [=, package = input_package()] {
            return time_calls(kCallsPerRound, kPeriod, [&] {
                require(
                    ready_to_send(fd) && send(fd, package.data(), package.size(), MSG_NOSIGNAL) > 0,
                    "input not sent");
            });
        };
    };
}

Prepare bare_input_raw() {
    return [number = next_peer_number()]() -> Measure {
        pin(Place::application);
        const Peer& peer = start_peer({.number = number, .raw = true});
        const int link = open_link(peer.host_interface());
        return [=, bytes = frame(peer.mac(), peer.host_mac(), kInputCode, input_package())] {
            return time_calls(kCallsPerRound, kPeriod, [&] {
                require(send(link, bytes.data(), bytes.size(), 0) > 0, "input not sent");
            });
        };
    };
}

}  // namespace

std::vector<Pair> input_pairs() {
    return {
        {"vexo_input_data_send over TCP",
         "µs",
         library_input(false),
         bare_input_tcp(),
         {{"p50", p50, 1.10}},
         25,
         "input_tcp.svg"},
        {"vexo_input_data_send raw",
         "µs",
         library_input(true),
         bare_input_raw(),
         {{"p50", p50, 1.10}},
         25,
         "input_raw.svg"},
    };
}

}  // namespace bench
