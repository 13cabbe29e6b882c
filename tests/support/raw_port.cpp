#include "tests/support/raw_port.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace test {

namespace {

constexpr uint16_t kEtherType = 0xC815;

sockaddr_in ip_address(const std::string& text) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    inet_pton(AF_INET, text.c_str(), &address.sin_addr);
    return address;
}

}  // namespace

std::unique_ptr<Port> Port::ethernet(const std::string& interface_name) {
    std::unique_ptr<Port> port(new Port(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)));
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(kEtherType);
    address.sll_ifindex = static_cast<int>(if_nametoindex(interface_name.c_str()));
    EXPECT_EQ(bind(port->socket_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0)
        << std::strerror(errno);
    return port;
}

std::unique_ptr<Port> Port::ip(const std::string& own_address) {
    std::unique_ptr<Port> port(new Port(socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP)));
    const sockaddr_in address = ip_address(own_address);
    EXPECT_EQ(bind(port->socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0)
        << std::strerror(errno);
    return port;
}

Port::~Port() {
    close(socket_);
}

void Port::send(const Bytes& frame) {
    EXPECT_EQ(static_cast<ssize_t>(frame.size()), ::send(socket_, frame.data(), frame.size(), 0))
        << std::strerror(errno);
}

void Port::send_to(const std::string& address, const Bytes& message) {
    const sockaddr_in to = ip_address(address);
    EXPECT_EQ(static_cast<ssize_t>(message.size()),
              sendto(socket_, message.data(), message.size(), 0,
                     reinterpret_cast<const sockaddr*>(&to), sizeof to))
        << std::strerror(errno);
}

bool Port::arrives(std::chrono::milliseconds limit) const {
    pollfd ready{socket_, POLLIN, 0};
    return poll(&ready, 1, static_cast<int>(limit.count())) == 1;
}

Bytes Port::receive() {
    EXPECT_TRUE(arrives()) << "nothing arrived";
    Bytes message(2048);
    const ssize_t got = recv(socket_, message.data(), message.size(), MSG_DONTWAIT);
    message.resize(got > 0 ? static_cast<size_t>(got) : 0);
    return message;
}

}  // namespace test
