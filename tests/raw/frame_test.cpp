// Taking messages apart, with bytes that no link would deliver.
#include "net/raw_frame.h"

#include <gtest/gtest.h>

#include "tests/raw/raw_link.h"

namespace test {
namespace {

class RawFrame : public ::testing::Test {
protected:
    RawFrame() {
        record.version = vexo::raw_version;
        record.marker = vexo::raw_marker;
    }
    long open(Bytes& frame) { return open_ethernet_frame(record, frame, code); }

    vexo::RawInstance record{};
    uint8_t code = 0;
};

Bytes tagged(Bytes frame, int tags) {
    const Bytes tag = bytes("81 00 20 05");
    for (int i = 0; i < tags; ++i) {
        frame.insert(frame.begin() + 12, tag.begin(), tag.end());
    }
    return frame;
}

TEST_F(RawFrame, StepsOverTags) {
    for (int tags = 0; tags <= 3; ++tags) {
        Bytes frame = tagged(controller_frame(0x92, bytes("01 02 03")), tags);
        EXPECT_EQ(3, open(frame)) << tags;
        EXPECT_EQ(0x92, code);
        frame.back() ^= 1;
        EXPECT_EQ(-103, open(frame)) << tags;
    }
}

TEST_F(RawFrame, IsRefusedWhenTagsLeaveNoRoomForTheHeader) {
    const Bytes whole = tagged(controller_frame(0x92, bytes("01 02 03")), 2);
    for (size_t length = 0; length < whole.size(); ++length) {
        Bytes frame(whole.begin(), whole.begin() + static_cast<long>(length));
        EXPECT_EQ(-102, open(frame)) << length;
    }
    Bytes nothing_but_tags(1500, 0x81);
    for (size_t i = 13; i < nothing_but_tags.size(); i += 4) {
        nothing_but_tags[i] = 0;
    }
    EXPECT_EQ(-102, open(nothing_but_tags));
}

TEST_F(RawFrame, DoesNotCompareTheLastEtherType) {
    Bytes frame = controller_frame(0x90, bytes("01"));
    frame[12] = 0x08;
    frame[13] = 0x00;
    EXPECT_EQ(1, open(frame));
}

TEST_F(RawFrame, OfAnotherVersionIsRefused) {
    record.version = 2;
    Bytes frame = controller_frame(0x90, bytes("01"));
    EXPECT_EQ(-102, open(frame));
    Bytes datagram = Bytes(1, 0x45) + Bytes(19) + controller_message(0x90, {});
    EXPECT_EQ(-102, open_ip_datagram(record, datagram, code));
}

TEST_F(RawFrame, BelievesNoIpHeaderLengthBeyondTheDatagram) {
    for (unsigned words = 0; words < 16; ++words) {
        Bytes datagram = Bytes(20) + controller_message(0x90, bytes("01 02"));
        datagram[0] = static_cast<uint8_t>(0x40 | words);
        EXPECT_EQ(words * 4, vexo::ip_header_length(datagram));
        EXPECT_EQ(words == 5 ? 2 : -102, open_ip_datagram(record, datagram, code)) << words;
    }
    EXPECT_EQ(0u, vexo::ip_header_length({}));
}

}  // namespace
}  // namespace test
