#include "tests/sim/peer.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

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

void Peer::send(const std::string& request) const {
    const Bytes data = bytes(request);
    ::send(socket_, data.data(), data.size(), MSG_NOSIGNAL);
}

Peer::Next Peer::next(Limit limit) const {
    pollfd ready{socket_, POLLIN, 0};
    if (poll(&ready, 1, static_cast<int>(limit.count())) <= 0) {
        return Next::silence;
    }
    uint8_t byte = 0;
    const ssize_t got = recv(socket_, &byte, 1, MSG_PEEK);
    return got > 0 ? Next::data : got < 0 && errno == ECONNRESET ? Next::reset : Next::close;
}

Bytes Peer::receive(size_t count) const {
    Bytes all;
    while (all.size() < count && next() == Next::data) {
        Bytes more(count - all.size());
        more.resize(static_cast<size_t>(recv(socket_, more.data(), more.size(), 0)));
        all = all + more;
    }
    return all;
}

std::string Peer::read(size_t count) const {
    return hex(receive(count));
}

std::string Peer::message() const {
    const Bytes length = receive(2);
    const auto size = static_cast<size_t>(length.size() == 2 ? length[0] | length[1] << 8 : 2);
    return hex(length + receive(size - 2));
}

std::string Peer::ask(const std::string& request) const {
    send(request);
    return message();
}

namespace {

sim::Options on(const std::string& address, sim::Options options) {
    options.address = address;
    return options;
}

}  // namespace

Bench::Bench(const sim::Options& options, int number)
    : address(own_loopback(number)),
      simulator(on(address, options)),
      io(address, sim::Port::io),
      control(address, sim::Port::control),
      stream(address, sim::Port::stream) {}

void Bench::stream_outputs(const std::vector<uint32_t>& ids) const {
    std::string list;
    for (const uint32_t id : ids) {
        list += value(id);
    }
    io.ask(value(static_cast<uint16_t>(9 + 4 * ids.size())) + "4F 00 00 00 00 " +
           value(static_cast<uint16_t>(ids.size())) + list);
    io.ask("03 00 53");
}

}  // namespace test
