// A link with a fast-path instance on this side and a socket of the test on the other.
#ifndef TESTS_SUPPORT_RAW_LINK_H
#define TESTS_SUPPORT_RAW_LINK_H

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "net/raw_socket.h"
#include "tests/support/raw_port.h"

namespace test {

// The checksum as it stands on the wire, by the book: big-endian words, one after another.
uint16_t reference_checksum(const Bytes& data);

// A frame as a controller would send it to every host, with sequence number 7.
Bytes controller_frame(uint8_t code, const Bytes& payload);
// The same from the transport header on, as an IP-mode message has it.
Bytes controller_message(uint8_t code, const Bytes& payload);

// What one receive did.
struct Received {
    long result = 0;
    uint8_t code = 0;
    long advance = 0;  // of the position
    Bytes buffer;      // exactly as large as the capacity
};
Received receive(int instance, unsigned capacity = 1514);
// Repeats until something other than -101 comes.
Received receive_next(int instance, unsigned capacity = 1514);

// A namespace of the test's own with the interfaces host0 (02:00:00:00:00:0A) and robot0
// (02:00:00:00:00:0B) at the ends of a cable, and the addresses 10.0.0.5 and 10.0.0.9 on loopback.
class RawLink : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // An Ethernet-mode instance on host0.
    int open_ethernet();
};

}  // namespace test

#endif
