#include "tests/support/raw_link.h"

#include <unistd.h>

#include <cstring>

#include "tests/support/network_namespace.h"
#include "tests/support/process.h"

namespace test {

namespace {

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

void RawLink::SetUp() {
    if (const std::string reason = enter_network_namespace(); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    make_veth_pair("host0", "02:00:00:00:00:0a", "robot0", "02:00:00:00:00:0b");
    run_ip("address add 10.0.0.5/32 dev lo");
    run_ip("address add 10.0.0.9/32 dev lo");
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
