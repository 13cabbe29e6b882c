// A bare controller in a process of its own: it answers what is asked and streams packages, and
// does as little as it can beside. Library and limit each have one.
#ifndef BENCH_PEER_H
#define BENCH_PEER_H

#include <string>

#include "bench/wire.h"

namespace bench {

constexpr int kIoPort = 2295;
constexpr int kControlPort = 2297;
constexpr int kReceivePort = 2299;

// The catalogue: rows of all three lists, in pages of 200.
constexpr uint32_t kOutputRows = 1999;
constexpr uint32_t kInputRows = 999;
constexpr uint32_t kMethodRows = 2999;
constexpr uint32_t kPageRows = 200;

// Rows of outputs that make up a package of the given size.
constexpr size_t kUsualPackage = 244;
constexpr size_t kLargestPackage = 1440;
std::vector<uint32_t> rows_of_package(size_t size);

std::string output_name(uint32_t row);

struct PeerOptions {
    int number;                // of its address and of its link; no two peers of a run share one
    bool raw = false;          // has a link, and streams on it
    bool acknowledges = true;  // set-points that come in frames
    size_t package_size = 0;   // of what it streams at 1 kHz while the stream is on; 0: nothing
};

struct Peer {
    PeerOptions options;

    std::string address() const;
    std::string host_interface() const;
    Mac host_mac() const;
    Mac mac() const;
};

// Starts a controller, which ends with the calling process.
const Peer& start_peer(const PeerOptions& options);

// A number for PeerOptions: each call gives the next.
int next_peer_number();

// A socket for our frames, bound to an interface. Receives wait without limit.
int open_link(const std::string& interface);

}  // namespace bench

#endif
