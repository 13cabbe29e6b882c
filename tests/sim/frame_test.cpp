// Frames of the raw path against bytes worked out by hand.
#include "sim/frame.h"

#include <gtest/gtest.h>

#include "tests/support/scripted_peer.h"

using test::operator+;

namespace {

const test::Bytes payload = test::bytes("07 00 6D 00 00 00 00");
const sim::MacAddress client{0x02, 0, 0, 0, 0, 0x01};
const sim::MacAddress controller{0x02, 0, 0, 0, 0, 0x02};

const sim::Frame reply{client, controller, sim::FrameCode::command, 0x0102, payload};

// Sum of A692 C8B7 ... in network order: A692 + C8B7 + 0201 + 0700 + 0000 + 0700 + 6D00 + 0000 +
// 0000 = 1EC4A, folded EC4B, complement 13B4.
constexpr const char* reply_bytes =
    "02 00 00 00 00 01 02 00 00 00 00 02 C8 15 A6 92 13 B4 C8 B7 02 01 07 00 00 00 "
    "07 00 6D 00 00 00 00 ";

}  // namespace

TEST(Frame, IsBuiltByteForByteAndReadBack) {
    EXPECT_EQ(test::hex(sim::build_frame(reply)), reply_bytes);
    const test::Bytes bytes = test::bytes(reply_bytes) + test::bytes("00 00 00");  // padding
    const auto frame = sim::read_frame(bytes);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->destination, client);
    EXPECT_EQ(frame->source, controller);
    EXPECT_EQ(frame->code, sim::FrameCode::command);
    EXPECT_EQ(frame->sequence, 0x0102);
    EXPECT_EQ(test::Bytes(frame->payload.begin(), frame->payload.end()), payload);
}

TEST(Frame, IsRejectedWhenAnyByteBehindTheAddressesIsWrong) {
    const test::Bytes good = test::bytes(reply_bytes);
    for (size_t at = 14; at < good.size(); ++at) {
        test::Bytes bad = good;
        bad[at] ^= 0x10;
        EXPECT_FALSE(sim::read_frame(bad)) << at;
    }
    for (size_t size = 0; size < good.size(); ++size) {
        EXPECT_FALSE(sim::read_frame(sim::BytesView(good).first(size))) << size;
    }
}

TEST(Frame, IsSpoiledAsItsFaultAsks) {
    sim::Fault fault;
    fault.altered = true;
    EXPECT_FALSE(sim::read_frame(sim::build_frame(reply, fault)));
    fault = {};
    fault.source = sim::MacAddress{2, 2, 2, 2, 2, 2};
    EXPECT_EQ(sim::read_frame(sim::build_frame(reply, fault))->source, fault.source);
    fault = {};
    fault.payload_length = 100;
    const test::Bytes lying = sim::build_frame(reply, fault);
    EXPECT_EQ(lying[22], 100);
    EXPECT_FALSE(sim::read_frame(lying));
    fault = {};
    fault.tagged = true;
    const std::string tagged = test::hex(sim::build_frame(reply, fault));
    EXPECT_EQ(tagged.substr(36, 24), "81 00 00 05 C8 15 A6 92 ");
}
