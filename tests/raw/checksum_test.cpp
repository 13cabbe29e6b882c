#include <gtest/gtest.h>

#include <random>

#include "tests/raw/raw_link.h"

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

TEST(RawChecksum, FollowsTheBookAtEveryLengthAndAlignment) {
    std::mt19937 random(1);
    for (int length = 0; length <= 1500; ++length) {
        for (int offset = 0; offset < 9; ++offset) {
            // Exactly as long as the data, for the address sanitizer.
            Bytes data(static_cast<size_t>(offset + length));
            for (uint8_t& byte : data) {
                byte = static_cast<uint8_t>(random());
            }
            ASSERT_EQ(reference(data.data() + offset, length),
                      checksum(data.data() + offset, length))
                << length << " bytes at " << offset;
        }
    }
}

TEST(RawChecksum, CarriesEverythingThatOverflows) {
    for (const int length : {1, 2, 3, 4, 31, 32, 33, 64, 1499, 1500, 65535, 1 << 20}) {
        Bytes data(static_cast<size_t>(length), 0xFF);
        EXPECT_EQ(reference(data.data(), length), checksum(data.data(), length)) << length;
        data.back() = 0xFE;
        EXPECT_EQ(reference(data.data(), length), checksum(data.data(), length)) << length;
    }
    const Bytes zeros(64);
    EXPECT_EQ(0xFFFFu, checksum(zeros.data(), 64));
}

TEST(RawChecksum, OfNoDataIsAllOnes) {
    EXPECT_EQ(0xFFFFu, checksum(nullptr, 0));
    EXPECT_EQ(0xFFFFu, checksum(nullptr, -1));
    EXPECT_EQ(0xFFFFu, checksum(nullptr, INT32_MIN));
}

}  // namespace
}  // namespace test
