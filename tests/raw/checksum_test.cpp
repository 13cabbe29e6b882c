// Without this a checksum could be wrong at some length, alignment or carry, and frames be refused.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/support/raw_link.h"

namespace test {
namespace {

uint32_t checksum(const uint8_t* data, int count) {
    return socket_raw_ip_cksum(reinterpret_cast<const uint16_t*>(data), count);
}

// On the wire the two bytes are those of the checksum in network order.
uint32_t reference(const uint8_t* data, int count) {
    const uint16_t sum = reference_checksum(Bytes(data, data + count));
    return static_cast<uint32_t>(sum >> 8 | (sum & 0xFF) << 8);
}

void expect_the_books(const Bytes& data, size_t offset = 0) {
    const auto length = static_cast<int>(data.size() - offset);
    ASSERT_EQ(reference(data.data() + offset, length), checksum(data.data() + offset, length))
        << length << " bytes at " << offset;
}

// Each is exactly as long as the data, for the address sanitizer.
TEST(RawChecksum, FollowsTheBookAtEveryLengthAndAlignment) {
    std::mt19937 random(1);
    for (size_t length = 0; length <= 1500; ++length) {
        for (size_t offset = 0; offset < 9; ++offset) {
            Bytes data(offset + length);
            std::generate(data.begin(), data.end(), [&] { return static_cast<uint8_t>(random()); });
            expect_the_books(data, offset);
        }
    }
    for (const size_t length : {1, 2, 3, 4, 31, 32, 33, 64, 1499, 1500, 65535, 1 << 20}) {
        Bytes carrying(length, 0xFF);
        expect_the_books(carrying);
        carrying.back() = 0xFE;
        expect_the_books(carrying);
    }
    for (const int none : {0, -1, INT32_MIN}) {
        EXPECT_EQ(checksum(nullptr, none), 0xFFFFu);
    }
}

}  // namespace
}  // namespace test
