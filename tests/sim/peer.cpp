#include "tests/sim/peer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tests/support/process.h"

namespace test {

Peer::Peer(const std::string& address, sim::Port port)
    : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in remote{};
    remote.sin_family = AF_INET;
    remote.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, address.c_str(), &remote.sin_addr);
    connected_ = connect(socket_, reinterpret_cast<sockaddr*>(&remote), sizeof remote) == 0;
}

Peer::~Peer() {
    close(socket_);
}

void Peer::send(const Bytes& data) const {
    ::send(socket_, data.data(), data.size(), MSG_NOSIGNAL);
}

bool Peer::readable(Limit limit) const {
    pollfd ready{socket_, POLLIN, 0};
    return poll(&ready, 1, static_cast<int>(limit.count())) > 0;
}

Bytes Peer::read(Limit limit, size_t most) {
    Bytes data(most);
    const ssize_t got = readable(limit) ? recv(socket_, data.data(), most, 0) : 0;
    data.resize(got > 0 ? static_cast<size_t>(got) : 0);
    return data;
}

Bytes Peer::read_exactly(size_t count) {
    Bytes all;
    while (all.size() < count) {
        const Bytes more = read(std::chrono::seconds(10), count - all.size());
        if (more.empty()) {
            break;
        }
        all = all + more;
    }
    return all;
}

Bytes Peer::message() {
    const Bytes length = read_exactly(2);
    if (length.size() < 2) {
        return length;
    }
    return length + read_exactly(static_cast<size_t>(length[0] | length[1] << 8) - 2);
}

std::string Peer::ask(const std::string& request) {
    send(bytes(request));
    return hex(message());
}

Peer::End Peer::end(Limit limit) {
    uint8_t byte = 0;
    if (!readable(limit)) {
        return End::none;
    }
    const ssize_t got = recv(socket_, &byte, 1, 0);
    if (got == 0) {
        return End::closed;
    }
    return got < 0 && errno == ECONNRESET ? End::reset : End::none;
}

namespace {

sim::Options on_own_address(sim::Options options) {
    options.address = own_loopback();
    return options;
}

}  // namespace

Bench::Bench(sim::Options options)
    : address(own_loopback()),
      simulator(on_own_address(std::move(options))),
      io(address, sim::Port::io),
      control(address, sim::Port::control),
      stream(address, sim::Port::stream) {}

sim::Options small_controller() {
    sim::Options options;
    options.rate = 200;
    options.catalogue.outputs = {{"strange", 0x01020304, sim::Type::vector3_f32}};
    options.catalogue.inputs = {{"speed", 0x22, sim::Type::f64}, {"step", 0x33, sim::Type::u16}};
    options.catalogue.methods = {{"go", 0x0201},
                                 {"servoJ", 0x0301},
                                 {"servoStop", 0x0302},
                                 {"resetError", 0x0401},
                                 {"setPercentVelocity", 0x0501},
                                 {"setToolDigitalOut", 0x0601},
                                 {"getAllDigitalInputBits", 0x0701}};
    return options;
}

std::string word(uint32_t n) {
    Bytes data(sizeof n);
    std::memcpy(data.data(), &n, sizeof n);
    return hex(data);
}

std::string number(double n) {
    Bytes data(sizeof n);
    std::memcpy(data.data(), &n, sizeof n);
    return hex(data);
}

}  // namespace test
