// Headers of the fast path, with bytes that no link would deliver, too.
#include "wire/frame.h"

#include <gtest/gtest.h>

#include "tests/support/raw_link.h"

namespace test {
namespace {

using namespace vexo::wire;

const Bytes kPayload = bytes("01 02 03");

Bytes tagged(Bytes frame, int tags) {
    const Bytes tag = bytes("81 00 20 05");
    for (int i = 0; i < tags; ++i) {
        frame.insert(frame.begin() + 12, tag.begin(), tag.end());
    }
    return frame;
}

std::string text(std::span<const uint8_t> data) {
    return hex(Bytes(data.begin(), data.end()));
}

TEST(WireFrame, HasItsBytesAndOpensAgain) {
    Bytes frame = Bytes(26, 0xEE) + kPayload;
    seal_ethernet_frame({{1, 2, 3, 4, 5, 6}, {2, 0, 0, 0, 0, 9}, 145, 0xABCD}, frame);
    const Bytes golden = bytes(
        "01 02 03 04 05 06 02 00 00 00 00 09 C8 15 A6 91 00 00 C8 B7 CD AB "
        "03 00 EE EE 01 02 03");
    Bytes unsummed = frame;
    unsummed[16] = unsummed[17] = 0;
    EXPECT_EQ(hex(unsummed), hex(golden));
    const uint16_t sum = reference_checksum(Bytes(golden.begin() + 14, golden.end()));
    EXPECT_EQ(frame[16] << 8 | frame[17], sum);

    const OpenedEthernetFrame opened = open_ethernet_frame(frame);
    EXPECT_EQ(opened.fault, FrameFault::none);
    EXPECT_EQ(opened.code, 145);
    EXPECT_EQ(opened.sequence, 0xABCD);
    EXPECT_EQ(opened.source, (MacBytes{2, 0, 0, 0, 0, 9}));
    EXPECT_EQ(text(opened.payload), "01 02 03 ");
    EXPECT_EQ(hex(frame), hex(unsummed)) << "the checksum field is cleared for good";
}

TEST(WireFrame, IsWrittenNowhereButInItsBytes) {
    for (size_t size = 0; size < 26; ++size) {
        Bytes frame(40, 0xEE);
        seal_ethernet_frame({{}, {}, 145, 1}, std::span(frame).first(size));
        EXPECT_EQ(Bytes(frame.begin() + static_cast<long>(size), frame.end()),
                  Bytes(40 - size, 0xEE));
        EXPECT_EQ(open_ethernet_frame(std::span(frame).first(size)).fault, FrameFault::malformed);
    }
}

TEST(WireFrame, IsOpenedBehindTags) {
    for (int tags = 0; tags <= 3; ++tags) {
        Bytes frame = tagged(controller_frame(0x92, kPayload), tags);
        const OpenedEthernetFrame opened = open_ethernet_frame(frame);
        EXPECT_EQ(opened.fault, FrameFault::none) << tags;
        EXPECT_EQ(opened.code, 0x92);
        EXPECT_EQ(text(opened.payload), "01 02 03 ");
        frame.back() ^= 1;
        EXPECT_EQ(open_ethernet_frame(frame).fault, FrameFault::bad_checksum) << tags;
    }
}

TEST(WireFrame, IsRefusedWhenTagsLeaveNoRoomForTheHeader) {
    const Bytes whole = tagged(controller_frame(0x92, kPayload), 2);
    for (size_t length = 0; length < whole.size(); ++length) {
        Bytes frame(whole.begin(), whole.begin() + static_cast<long>(length));
        EXPECT_EQ(open_ethernet_frame(frame).fault, FrameFault::malformed) << length;
    }
    Bytes nothing_but_tags(1500, 0x81);
    for (size_t i = 13; i < nothing_but_tags.size(); i += 4) {
        nothing_but_tags[i] = 0;
    }
    EXPECT_EQ(open_ethernet_frame(nothing_but_tags).fault, FrameFault::malformed);
}

TEST(WireFrame, MayHaveAnyLastEtherType) {
    Bytes frame = controller_frame(0x90, bytes("01"));
    frame[12] = 0x08;
    frame[13] = 0x00;
    EXPECT_EQ(open_ethernet_frame(frame).fault, FrameFault::none);
}

TEST(WireFrame, OfAnIpMessageHasItsBytesAndOpensAgain) {
    Bytes message = Bytes(8, 0xEE) + kPayload;
    seal_ip_message(146, 0xABCD, message);
    const Bytes golden = bytes("A6 92 00 00 C8 B7 CD AB 01 02 03");
    EXPECT_EQ(message[2] << 8 | message[3], reference_checksum(golden));
    message[2] = message[3] = 0;
    EXPECT_EQ(hex(message), hex(golden));

    const Bytes header = bytes("45 00 00 00 00 00 00 00 00 00 00 00 0A 00 00 05 00 00 00 00");
    const Bytes datagram = header + message;
    const OpenedIpDatagram opened = open_ip_datagram(datagram);
    EXPECT_EQ(opened.fault, FrameFault::none) << "whatever the checksum";
    EXPECT_EQ(opened.code, 146);
    EXPECT_EQ(opened.sequence, 0xABCD);
    EXPECT_EQ(opened.source, 0x0500000Au);
    EXPECT_EQ(text(opened.payload), "01 02 03 ");
}

TEST(WireFrame, BelievesNoIpHeaderLengthBeyondTheDatagram) {
    for (unsigned words = 0; words < 16; ++words) {
        Bytes datagram = Bytes(20) + controller_message(0x90, bytes("01 02"));
        datagram[0] = static_cast<uint8_t>(0x40 | words);
        EXPECT_EQ(words * 4, ip_header_length(datagram));
        const OpenedIpDatagram opened = open_ip_datagram(datagram);
        EXPECT_EQ(opened.fault, words == 5 ? FrameFault::none : FrameFault::malformed) << words;
        EXPECT_EQ(opened.payload.size(), words == 5 ? 2u : 0u);
    }
    EXPECT_EQ(ip_header_length({}), 0u);
}

}  // namespace
}  // namespace test
