// A client's end of one connection to a simulator, with no knowledge of the messages but that they
// begin with their length. Requests and replies are written as hex digits.
#ifndef TESTS_SIM_PEER_H
#define TESTS_SIM_PEER_H

#include "sim/simulator.h"
#include "tests/support/process.h"
#include "tests/support/scripted_peer.h"

namespace test {

class Peer {
public:
    using Limit = std::chrono::milliseconds;

    Peer(const std::string& address, sim::Port port);
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    bool connected() const { return connected_; }
    void send(const std::string& request) const;
    // So many bytes, or fewer when no more come.
    std::string read(size_t count) const;
    // A message, by its length word.
    std::string message() const;
    std::string ask(const std::string& request) const;

    // What comes next, if anything comes in time.
    enum class Next { silence, data, close, reset };
    Next next(Limit limit = std::chrono::seconds(10)) const;

private:
    Bytes receive(size_t count) const;

    int socket_;
    bool connected_;
};

// The three connections of a client to a simulator of its own.
struct Bench {
    explicit Bench(const sim::Options& options = {}, int number = 1);
    // Sets up a recipe of these output ids and starts the stream.
    void stream_outputs(const std::vector<uint32_t>& ids) const;

    std::string address;
    sim::Simulator simulator;
    Peer io;
    Peer control;
    Peer stream;
};

// A value as the hex digits of its bytes.
template <typename T>
std::string value(T n) {
    const auto* first = reinterpret_cast<const uint8_t*>(&n);
    return hex({first, first + sizeof n});
}

}  // namespace test

#endif
