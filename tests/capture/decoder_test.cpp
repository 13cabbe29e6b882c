// What a decoder makes of streams that it only sees passing by.
#include "tools/capture/decoder.h"

#include <gmock/gmock.h>

#include <cstring>
#include <functional>
#include <random>

#include "tests/capture/conversation.h"

namespace test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

struct Seen {
    std::vector<uint32_t> counts;
    std::vector<uint64_t> lost;
    std::vector<std::string> fields;
    std::string controller;
    capture::Counters counters;
};

Seen decode(const std::vector<Taken>& packets, capture::Options options = {}) {
    Seen seen;
    capture::Decoder decoder(std::move(options), [&](const capture::Row& row) {
        uint32_t count = 0;
        ASSERT_EQ(row.values.size(), row.layout->bytes());
        std::memcpy(&count, row.values.data() + row.layout->find("counter")->offset, sizeof count);
        seen.counts.push_back(count);
        seen.lost.push_back(row.lost);
        seen.controller = row.controller;
        seen.fields.clear();
        for (const capture::Field& field : row.layout->fields()) {
            seen.fields.push_back(field.name + ':' + std::to_string(field.type));
        }
    });
    for (const Taken& packet : packets) {
        decoder.take({packet.time_ns, capture::LinkType::ethernet, packet.bytes});
    }
    decoder.finish();
    seen.counters = decoder.counters();
    return seen;
}

capture::Options with_catalogue() {
    capture::Options options;
    options.known.catalogue.outputs = {{"counter", 7, 4}, {"joints", 9, 13}};
    options.known.recipe = {"counter", "joints"};
    return options;
}

// Packages 1 to 12 in segments of this size, acknowledged each time.
Conversation stream(size_t piece) {
    Conversation all;
    all.set_up(2);
    Bytes bytes;
    for (uint32_t count = 1; count <= 12; ++count) {
        const Bytes package = Conversation::package(count);
        bytes.insert(bytes.end(), package.begin(), package.end());
    }
    for (size_t at = 0; at < bytes.size(); at += piece) {
        const auto begin = bytes.begin() + static_cast<ptrdiff_t>(at);
        all.send(2299, true,
                 {begin, begin + static_cast<ptrdiff_t>(std::min(piece, bytes.size() - at))});
        all.acknowledge(2299, true);
    }
    return all;
}

// Where the segments of the stream are: each is followed by its acknowledgement.
size_t segment(const Conversation& all, size_t number, size_t piece) {
    const size_t segments = (12 * Conversation::kPackage + piece - 1) / piece;
    return all.packets.size() - 2 * (segments - number);
}

std::vector<uint32_t> count_up(uint32_t first, uint32_t last) {
    std::vector<uint32_t> counts;
    for (uint32_t count = first; count <= last; ++count) {
        counts.push_back(count);
    }
    return counts;
}

}  // namespace

TEST(Stream, IsReadHoweverItIsCut) {
    for (const size_t piece :
         {size_t{1}, size_t{3}, size_t{55}, size_t{56}, size_t{57}, size_t{200}, size_t{1400}}) {
        const Seen seen = decode(stream(piece).packets);
        EXPECT_THAT(seen.counts, ElementsAreArray(count_up(1, 12))) << piece;
        EXPECT_THAT(seen.fields, ElementsAre("counter:4", "joints:13"));
        EXPECT_EQ(seen.controller, "10.0.0.2");
        EXPECT_EQ(seen.counters.lost + seen.counters.resent + seen.counters.unseen, 0U);
    }
}

// Segments of 100 bytes, each with its acknowledgement behind it.
TEST(Stream, TellsLossFromRetransmission) {
    constexpr size_t kPiece = 100;
    using Packets = std::vector<Taken>;
    const auto erase = [](Packets& packets, size_t at) {
        packets.erase(packets.begin() + static_cast<ptrdiff_t>(at));
    };
    const auto delay = [](Packets& packets, size_t from, int64_t milliseconds) {
        for (size_t i = from; i < packets.size(); ++i) {
            packets[i].time_ns += milliseconds * 1'000'000;
        }
    };
    // The third segment behind the fourth, without the acknowledgements that came between.
    const auto swap = [&](Packets& packets, size_t third) {
        erase(packets, third + 1);
        std::swap(packets[third], packets[third + 1]);
        std::swap(packets[third].time_ns, packets[third + 1].time_ns);
    };
    const struct {
        const char* what;
        // `third` is where the segment with the bytes 200 to 299 is, of the packages 4 to 6.
        std::function<void(Packets&, size_t third)> happens;
        std::vector<uint32_t> missing;
        uint64_t resent;
        uint64_t reordered;
        uint64_t unseen;
    } cases[] = {
        {"nothing", [](Packets&, size_t) {}, {}, 0, 0, 0},
        {"came twice", [](Packets& p, size_t third) { p.push_back(p[third]); }, {}, 1, 0, 0},
        {"overtaken", swap, {}, 0, 1, 0},
        {"lost on the way, and sent again",
         [&](Packets& p, size_t third) {
             swap(p, third);
             delay(p, third + 1, 200);
         },
         {},
         1,
         0,
         0},
        {"not captured",
         [&](Packets& p, size_t third) {
             erase(p, third);
             delay(p, third + 2, 300);
         },
         {4, 5, 6},
         0,
         0,
         100},
        {"cut by the capture",
         [](Packets& p, size_t third) { p[third].bytes.resize(p[third].bytes.size() - 10); },
         {6},
         0,
         0,
         10},
    };
    for (const auto& each : cases) {
        Conversation all = stream(kPiece);
        each.happens(all.packets, segment(all, 2, kPiece));
        const Seen seen = decode(all.packets);
        std::vector<uint32_t> expected = count_up(1, 12);
        std::erase_if(expected,
                      [&](uint32_t count) { return std::ranges::count(each.missing, count) > 0; });
        EXPECT_EQ(seen.counts, expected) << each.what;
        EXPECT_EQ(seen.counters.lost, each.missing.size()) << each.what;
        EXPECT_EQ(seen.counters.resent, each.resent) << each.what;
        EXPECT_EQ(seen.counters.reordered, each.reordered) << each.what;
        EXPECT_EQ(seen.counters.unseen, each.unseen) << each.what;
    }
}

TEST(Stream, IsReadFromTheMiddle) {
    constexpr size_t kPiece = 100;
    Conversation all = stream(kPiece);
    all.packets.erase(all.packets.begin(),
                      all.packets.begin() + static_cast<ptrdiff_t>(segment(all, 1, kPiece)));
    EXPECT_THAT(decode(all.packets).counts, ElementsAre());
    EXPECT_GT(decode(all.packets).counters.unnamed, 5U);
    EXPECT_EQ(decode(all.packets, with_catalogue()).counts, count_up(3, 12));
    capture::Options other = with_catalogue();
    other.controller = kClient;
    EXPECT_THAT(decode(all.packets, other).counts, ElementsAre());
}

TEST(Stream, FollowsANewSessionAndARefusedRecipe) {
    Conversation all = stream(56);
    Bytes refused = reply('O', {9});
    refused[3] = 5;
    all.send(2295, false, message('O', uint32_t{0}, uint16_t{1}, uint32_t{8}));
    all.send(2295, true, refused);
    all.send(2299, true, Conversation::package(13));
    EXPECT_EQ(decode(all.packets).counts, count_up(1, 13));
    // The values of a recipe set up anew are others; packages on their way are passed over.
    all.send(2295, false, message('O', uint32_t{0}, uint16_t{1}, uint32_t{7}));
    all.send(2295, true, reply('O', {2}));
    all.send(2299, true, Conversation::package(14));
    all.send(2299, true, message('U', uint8_t{2}, uint32_t{15}));
    const Seen seen = decode(all.packets);
    EXPECT_EQ(seen.counts, count_up(1, 15));
    EXPECT_THAT(seen.fields, ElementsAre("counter:4"));
}

TEST(Frames, AreCountedByTheirNumbers) {
    Conversation all;
    all.set_up(0x10003);
    const struct {
        uint16_t sequence;
        uint32_t count;
    } frames[] = {{65534, 1}, {65535, 2}, {0, 3}, {0, 3}, {3, 6}, {2, 5}, {4, 7}};
    for (const auto& [sequence, count] : frames) {
        all.send_frame(sequence, Conversation::package(count));
    }
    Taken altered = all.packets.back();
    altered.bytes.back() ^= 1;
    all.packets.push_back(altered);
    const Seen seen = decode(all.packets);
    EXPECT_THAT(seen.counts, ElementsAre(1, 2, 3, 6, 7));
    EXPECT_THAT(seen.lost, ElementsAre(0, 0, 0, 2, 0));
    EXPECT_EQ(seen.counters.repeated_frames, 2U);
    EXPECT_EQ(seen.counters.bad_frames, 1U);
    EXPECT_EQ(seen.controller, "10.0.0.2");

    // From the middle, and with a count of packages that tells what was never sent.
    std::erase_if(all.packets, [](const Taken& packet) { return packet.bytes[12] == 8; });
    capture::Options options = with_catalogue();
    options.counter = "counter";
    all.send_frame(5, Conversation::package(18));
    const Seen later = decode(all.packets, options);
    EXPECT_THAT(later.lost, ElementsAre(0, 0, 0, 2, 0, 10));
    EXPECT_EQ(later.controller, "02:00:00:00:00:0b");
}

// Whatever the bytes are, a decoder stays within them; and a sane stream behind them is read.
TEST(AnyPackets, DoNoHarm) {
    std::mt19937 random(1);
    const auto any = [&](size_t count) { return random() % count; };
    Conversation frames;
    frames.set_up(0x10003);
    frames.send_frame(0, Conversation::package(1));
    for (int round = 0; round < 3000; ++round) {
        std::vector<Taken> packets = round % 2 == 0 ? stream(100).packets : frames.packets;
        for (size_t changes = 1 + any(6); changes > 0; --changes) {
            Taken& packet = packets[any(packets.size())];
            switch (any(4)) {
                case 0:
                    packet.bytes.resize(any(packet.bytes.size() + 1));
                    packet.bytes.shrink_to_fit();
                    break;
                case 1:
                    std::swap(packet, packets[any(packets.size())]);
                    break;
                default:
                    if (!packet.bytes.empty()) {
                        packet.bytes[any(packet.bytes.size())] = static_cast<uint8_t>(random());
                    }
            }
        }
        uint64_t rows = 0;
        capture::Decoder decoder(with_catalogue(), [&](const capture::Row& row) {
            ASSERT_EQ(row.values.size(), row.layout->bytes());
            ++rows;
        });
        for (const Taken& packet : packets) {
            for (const auto link : {capture::LinkType::ethernet, capture::LinkType::cooked}) {
                decoder.take({packet.time_ns, link, packet.bytes});
            }
        }
        decoder.finish();
        EXPECT_EQ(decoder.counters().packages, rows);
    }
}

}  // namespace test
