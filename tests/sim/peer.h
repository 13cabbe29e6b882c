// A client's end of one connection to a simulator, with no knowledge of the messages but that they
// begin with their length.
#ifndef TESTS_SIM_PEER_H
#define TESTS_SIM_PEER_H

#include <chrono>
#include <string>

#include "sim/simulator.h"
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
    void send(const Bytes& data) const;
    // What one read yields; empty when nothing comes in time, or nothing more at all.
    Bytes read(Limit limit = std::chrono::seconds(10), size_t most = 65536);
    // So many bytes, or fewer when no more come.
    Bytes read_exactly(size_t count);
    // A message, by its length word.
    Bytes message();
    // A request written as hex digits, and its reply the same way.
    std::string ask(const std::string& request);
    // How the other side ended the connection, waiting for it.
    enum class End { none, closed, reset };
    End end(Limit limit = std::chrono::seconds(10));
    bool readable(Limit limit) const;

private:
    int socket_;
    bool connected_;
};

// Options with a catalogue that is small enough to write requests by hand.
sim::Options small_controller();

// The three connections of a client to a simulator of its own.
struct Bench {
    explicit Bench(sim::Options options = {});

    std::string address;
    sim::Simulator simulator;
    Peer io;
    Peer control;
    Peer stream;
};

// "n" as the two hex digits of each of its bytes, lowest first.
std::string word(uint32_t n);
std::string number(double n);

}  // namespace test

#endif
