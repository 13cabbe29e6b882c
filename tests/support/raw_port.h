// A raw socket of a test: what another station of the link would send and receive with.
#ifndef TESTS_SUPPORT_RAW_PORT_H
#define TESTS_SUPPORT_RAW_PORT_H

#include <chrono>
#include <memory>
#include <string>

#include "tests/support/scripted_peer.h"

namespace test {

class Port {
public:
    // Frames of the fast path's EtherType on an interface.
    static std::unique_ptr<Port> ethernet(const std::string& interface_name);
    // IP messages to an address.
    static std::unique_ptr<Port> ip(const std::string& own_address);
    ~Port();
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;

    int descriptor() const { return socket_; }
    void send(const Bytes& frame);
    void send_to(const std::string& address, const Bytes& message);
    // Whether something comes in time.
    bool arrives(std::chrono::milliseconds limit = std::chrono::seconds(10)) const;
    // The next message; empty, and the test fails, when none comes.
    Bytes receive();

private:
    explicit Port(int socket) : socket_(socket) {}
    int socket_;
};

}  // namespace test

#endif
