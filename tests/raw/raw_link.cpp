#include "tests/raw/raw_link.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include "tests/support/network_namespace.h"
#include "tests/support/process.h"

namespace test {

namespace {

constexpr uint16_t ether_type = 0xC815;
constexpr int receive_limit_ms = 10'000;

sockaddr_in ip_address(const std::string& text) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    inet_pton(AF_INET, text.c_str(), &address.sin_addr);
    return address;
}

// Puts the checksum of the bytes from `start` on at `start + 2`.
Bytes with_checksum(Bytes message, size_t start) {
    const uint16_t sum =
        reference_checksum(Bytes(message.begin() + static_cast<long>(start), message.end()));
    message[start + 2] = static_cast<uint8_t>(sum >> 8);
    message[start + 3] = static_cast<uint8_t>(sum);
    return message;
}

}  // namespace

uint16_t reference_checksum(const Bytes& data) {
    uint32_t sum = 0;
    for (size_t i = 0; i < data.size(); i += 2) {
        const uint32_t low = i + 1 < data.size() ? data[i + 1] : 0;
        sum += static_cast<uint32_t>(data[i]) << 8 | low;
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<uint16_t>(~sum);
}

Bytes controller_frame(uint8_t code, const Bytes& payload) {
    const auto low = static_cast<uint8_t>(payload.size());
    const auto high = static_cast<uint8_t>(payload.size() >> 8);
    return with_checksum(bytes("FF FF FF FF FF FF 02 00 00 00 00 0B C8 15") + Bytes{0xA6, code} +
                             bytes("00 00 C8 B7 07 00") + Bytes{low, high} + bytes("00 00") +
                             payload,
                         14);
}

Bytes controller_message(uint8_t code, const Bytes& payload) {
    return with_checksum(Bytes{0xA6, code} + bytes("00 00 C8 B7 07 00") + payload, 0);
}

std::unique_ptr<Port> Port::ethernet(const std::string& interface_name) {
    std::unique_ptr<Port> port(new Port(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)));
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ether_type);
    address.sll_ifindex = static_cast<int>(if_nametoindex(interface_name.c_str()));
    EXPECT_EQ(0, bind(port->socket_, reinterpret_cast<sockaddr*>(&address), sizeof address))
        << std::strerror(errno);
    return port;
}

std::unique_ptr<Port> Port::ip(const std::string& own_address) {
    std::unique_ptr<Port> port(new Port(socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP)));
    const sockaddr_in address = ip_address(own_address);
    EXPECT_EQ(0, bind(port->socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address))
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

Bytes Port::receive() {
    pollfd ready{socket_, POLLIN, 0};
    EXPECT_EQ(1, poll(&ready, 1, receive_limit_ms)) << "nothing arrived";
    Bytes message(2048);
    const ssize_t got = recv(socket_, message.data(), message.size(), MSG_DONTWAIT);
    message.resize(got > 0 ? static_cast<size_t>(got) : 0);
    return message;
}

Received receive(int instance, unsigned capacity) {
    Received received;
    received.buffer.resize(capacity);
    uint8_t* position = received.buffer.data();
    received.result = socket_raw_recvfrom(instance, &received.code, &position, capacity);
    received.advance = position - received.buffer.data();
    return received;
}

Received receive_next(int instance, unsigned capacity) {
    Received received;
    EXPECT_TRUE(wait_until([&] {
        received = receive(instance, capacity);
        return received.result != -101;
    })) << "nothing arrived";
    return received;
}

bool holds_in_child(const std::function<bool()>& check) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(check() ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void RawLink::SetUp() {
    if (const std::string reason = enter_network_namespace(); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    make_veth_pair("host0", "02:00:00:00:00:0a", "robot0", "02:00:00:00:00:0b");
    run_ip("address add 10.0.0.5/32 dev lo");
    run_ip("address add 10.0.0.9/32 dev lo");
    capture_ = std::make_unique<PacketCapture>(captured_);
}

void RawLink::TearDown() {
    for (int instance = 0; instance < 8; ++instance) {
        socket_raw_free(instance);
    }
}

int RawLink::open_ethernet() {
    const int instance = socket_raw_create("host0", SOCKET_RAW_MODE_ETHERNET);
    EXPECT_GE(instance, 0) << std::strerror(errno);
    return instance;
}

}  // namespace test
