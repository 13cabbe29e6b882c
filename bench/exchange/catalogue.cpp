// The whole catalogue: 33 pages of 200 rows.
#include <sys/socket.h>

#include <algorithm>

#include "bench/bare.h"
#include "bench/exchange/pairs.h"
#include "bench/session.h"

namespace bench {

namespace {

constexpr int kLoadsPerRound = 10;

Prepare library_catalogue() {
    return [number = next_peer_number()]() -> Measure {
        pin(Place::application);
        const Peer& peer = start_peer({number});
        const uint32_t handle = open_session(peer, 2);
        return [=] {
            return time_calls(kLoadsPerRound, 0,
                              [=] { require(vexo_all_recipe_get(handle) == 0, "no catalogue"); });
        };
    };
}

// Reads a page in the pieces that the exchange prescribes, and throws it away.
void read_page(int fd, char letter, uint32_t first) {
    constexpr size_t kPiece = 1400;
    Bytes payload;
    append(payload, first);
    const Bytes request = message(letter, payload);
    uint8_t piece[kPiece];
    require(ready_to_send(fd) && send(fd, request.data(), request.size(), MSG_NOSIGNAL) > 0,
            "page not asked for");
    size_t received = 0;
    size_t needed = kPiece;
    while (received < needed) {
        ready_to_receive(fd);
        const ssize_t got = recv(fd, piece, std::min(kPiece, needed - received), 0);
        require(got > 0, "no page");
        if (received == 0) {
            needed = load<uint16_t>(piece);
        }
        received += static_cast<size_t>(got);
    }
}

Prepare bare_catalogue() {
    return [number = next_peer_number()]() -> Measure {
        pin(Place::application);
        const Peer& peer = start_peer({number});
        const int fd = connect_bare(peer.address(), kIoPort);
        return [=] {
            return time_calls(kLoadsPerRound, 0, [=] {
                const std::pair<char, uint32_t> lists[] = {
                    {'R', kOutputRows}, {'r', kInputRows}, {'M', kMethodRows}};
                for (const auto& [letter, rows] : lists) {
                    for (uint32_t first = 0; first < rows; first += kPageRows) {
                        read_page(fd, letter, first);
                    }
                }
            });
        };
    };
}

}  // namespace

std::vector<Pair> catalogue_pairs() {
    return {{"whole catalogue, 1999 + 999 + 2999 rows",
             "µs",
             library_catalogue(),
             bare_catalogue(),
             {{"p50", p50, 1.3}},
             15}};
}

}  // namespace bench
