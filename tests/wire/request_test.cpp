// What is sent, byte by byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "tests/support/scripted_peer.h"
#include "wire/catalogue.h"
#include "wire/controller_version.h"
#include "wire/negotiation.h"
#include "wire/package.h"
#include "wire/recipe.h"
#include "wire/set_point.h"

namespace test {
namespace {

using namespace vexo::wire;
using Buffer = std::span<uint8_t>;

constexpr uint8_t kUntouched = 0xEE;
constexpr MacBytes kHost = {2, 0, 0, 0, 0, 7};
constexpr double kVector[6] = {1, 2, 0, 0, 0, 0};
constexpr double kValues[] = {0.5, -2};
constexpr uint8_t kShorts[] = {1, 0, 2, 0, 3, 0};
constexpr uint8_t kPair[] = {0xAA, 0xBB};

#define HALF "00 00 00 00 00 00 E0 3F "
#define MINUS_TWO "00 00 00 00 00 00 00 C0 "
#define VECTOR                                                                             \
    "0D 00 00 00 00 00 00 F0 3F 00 00 00 00 00 00 00 40 00 00 00 00 00 00 00 00 00 00 00 " \
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "

MessageWriter call(Buffer buffer, std::initializer_list<Argument> arguments) {
    return method_call(buffer, 0x1234, {arguments.begin(), arguments.size()});
}

SetPoint set_point(uint8_t flag, const double* vector, std::span<const double> values) {
    return {0x1234, 0.5, 100000, flag, vector, values};
}

struct Request {
    const char* name;
    const char* bytes;
    MessageWriter (*build)(Buffer);
};

const Request kRequests[] = {
    {"version 1", "0B 00 56 01 00 00 00 00 00 00 00",
     [](Buffer b) { return negotiation_request(b, version_word(1, true), kHost); }},
    {"version 2", "0B 00 56 02 00 00 00 00 00 00 00",
     [](Buffer b) { return negotiation_request(b, version_word(2, true), kHost); }},
    {"a negative version, whose sign is in the flags, too",
     "11 00 56 FE FF FF FF FF FF FF FF 00 00 00 00 00 00",
     [](Buffer b) { return negotiation_request(b, version_word(-2, false), MacBytes{}); }},
    {"raw frames", "11 00 56 03 00 01 00 00 00 00 00 02 00 00 00 00 07",
     [](Buffer b) { return negotiation_request(b, version_word(3, false), kHost); }},
    {"raw frames without acknowledgements", "11 00 56 04 00 03 00 01 00 00 00 02 00 00 00 00 07",
     [](Buffer b) { return negotiation_request(b, version_word(0x100000004, true), kHost); }},
    {"outputs", "07 00 52 04 03 02 01",
     [](Buffer b) { return page_request(b, Letter::output_page, 0x01020304); }},
    {"inputs", "07 00 72 C8 00 00 00",
     [](Buffer b) { return page_request(b, Letter::input_page, 200); }},
    {"methods", "07 00 4D 0A 00 00 00",
     [](Buffer b) { return page_request(b, Letter::method_page, 10); }},
    {"output recipe", "11 00 4F 44 33 22 11 02 00 05 00 00 00 D0 C0 B0 A0",
     [](Buffer b) { return output_recipe_request(b, 0x11223344, 2).u32(5).u32(0xA0B0C0D0); }},
    {"input recipe", "09 00 49 01 00 07 00 01 00",
     [](Buffer b) { return input_recipe_request(b, 1).u32(0x10007); }},
    {"start", "03 00 53", start_request},
    {"pause", "03 00 50", pause_request},
    {"controller version", "03 00 76", controller_version_request},
    {"input package", "06 00 55 03 AA BB", [](Buffer b) { return input_package(b, 3, kPair); }},
    {"no arguments", "06 00 6D 34 12 00", [](Buffer b) { return call(b, {}); }},
    {"each kind of argument",
     "6E 00 6D 34 12 09 0B " HALF "02 2C 01 01 04 04 03 02 01 " VECTOR "13 01 02 0B " HALF MINUS_TWO
     "13 01 03 03 01 00 02 00 03 00",
     [](Buffer b) {
         return call(b, {Argument::real(0.5), Argument::byte(0x2C), Argument::flag(1),
                         Argument::u32(0x01020304), Argument::vector(kVector),
                         Argument::array(kValues), Argument::array(VEXO_TYPE_U16, kShorts)});
     }},
    {"values of any type", "0C 00 6D 34 12 02 03 AA BB 07 AA BB",
     [](Buffer b) {
         return call(
             b, {Argument::value(VEXO_TYPE_U16, kPair), Argument::value(VEXO_TYPE_I16, kPair)});
     }},
    {"set-point with values",
     "2A 00 6D 34 12 06 0B " HALF "04 A0 86 01 00 02 09 02 02 0B " HALF "0B " MINUS_TWO,
     [](Buffer b) { return set_point_with_values(b, set_point(9, nullptr, kValues)); }},
    {"set-point with values and vector, whatever the flag",
     "49 00 6D 34 12 05 0B " HALF "04 A0 86 01 00 02 00 " VECTOR "02 00",
     [](Buffer b) { return set_point_with_values(b, set_point(0, kVector, {})); }},
    {"set-point with array",
     "2A 00 6D 34 12 05 0B " HALF "04 A0 86 01 00 02 09 13 01 02 0B " HALF MINUS_TWO,
     [](Buffer b) { return set_point_with_array(b, set_point(9, nullptr, kValues)); }},
    {"set-point with array and vector",
     "5B 00 6D 34 12 06 0B " HALF "04 A0 86 01 00 02 01 " VECTOR "13 01 02 0B " HALF MINUS_TWO,
     [](Buffer b) { return set_point_with_array(b, set_point(1, kVector, kValues)); }},
    {"set-point with array, the vector left out without the flag",
     "2A 00 6D 34 12 05 0B " HALF "04 A0 86 01 00 02 00 13 01 02 0B " HALF MINUS_TWO,
     [](Buffer b) { return set_point_with_array(b, set_point(0, kVector, kValues)); }},
    {"set-point with an empty array, where the buffer shows",
     "22 00 6D 34 12 05 0B " HALF "04 A0 86 01 00 02 09 13 01 00 0B EE EE EE EE EE EE EE EE",
     [](Buffer b) { return set_point_with_array(b, set_point(9, nullptr, {})); }},
};

// With no byte of room too few, it is all there; with any less, it is what fits of it, says so by
// its length word and by ok(), and nothing is written behind it.
TEST(WireRequest, HasItsBytesAndKeepsToItsRoom) {
    for (const Request& request : kRequests) {
        const Bytes golden = bytes(request.bytes);
        for (size_t room = 0; room <= golden.size(); ++room) {
            SCOPED_TRACE(std::string(request.name) + " in " + std::to_string(room));
            Bytes buffer(golden.size() + 8, kUntouched);
            MessageWriter message = request.build(Buffer(buffer).first(room));
            const auto sent = message.finish();
            EXPECT_EQ(message.ok(), room == golden.size());
            ASSERT_EQ(sent.size(), room);
            Bytes expected(golden.begin(), golden.begin() + static_cast<long>(room));
            if (room >= 2) {
                expected[0] = static_cast<uint8_t>(room);
                EXPECT_EQ(message_length(sent), room);
            } else {
                expected.assign(room, kUntouched);
            }
            expected.resize(buffer.size(), kUntouched);
            EXPECT_EQ(hex(buffer), hex(expected));
        }
    }
}

TEST(WireRequest, IsNeverLongerThanALengthWordSays) {
    Bytes buffer(70000);
    const Bytes values(66000);
    MessageWriter message = input_package(buffer, 3, values);
    EXPECT_EQ(message.finish().size(), 65535u);
    EXPECT_FALSE(message.ok());
    EXPECT_EQ(hex({buffer[0], buffer[1]}), "FF FF ");
}

// 5 + 255 arguments are counted in one byte.
TEST(WireRequest, OfASetPointHoldsTheMostValues) {
    const std::vector<double> values(255, 0.5);
    Bytes buffer(4096);
    MessageWriter message = set_point_with_values(buffer, set_point(1, kVector, values));
    EXPECT_EQ(message.finish().size(), 73u + 9 * 255);
    EXPECT_EQ(buffer[5], 4);
    message = set_point_with_array(buffer, set_point(1, kVector, values));
    EXPECT_EQ(message.finish().size(), 75u + 8 * 255);
}

TEST(WireRequest, OfARecipeHasRoomForWholeIds) {
    for (size_t size = 0; size < 40; ++size) {
        const size_t room = output_recipe_room(size);
        Bytes buffer(size);
        MessageWriter message = output_recipe_request(buffer, 0, 0);
        for (size_t i = 0; i < room; ++i) {
            message.u32(1);
        }
        EXPECT_EQ(message.ok(), size >= 9) << size;
        EXPECT_FALSE(message.u32(1).ok()) << size;
    }
}

TEST(WireRequest, TakesOnlyArgumentsThatFitTheirType) {
    const std::array<uint8_t, 48> bytes{};
    for (size_t size = 0; size <= bytes.size(); ++size) {
        const std::span<const uint8_t> value = std::span(bytes).first(size);
        EXPECT_EQ(Argument::value(VEXO_TYPE_I16, value).fits(), size == 2) << size;
        EXPECT_EQ(Argument::value(VEXO_TYPE_6F64, value).fits(), size == 48) << size;
        EXPECT_EQ(Argument::array(VEXO_TYPE_U32, value).fits(), size % 4 == 0) << size;
        EXPECT_FALSE(Argument::array(VEXO_TYPE_ARRAY, value).fits()) << size;
        EXPECT_FALSE(Argument::value(20, value).fits()) << size;
    }
    const Bytes many(256);
    EXPECT_TRUE(Argument::array(VEXO_TYPE_U8, std::span(many).first(255)).fits());
    EXPECT_FALSE(Argument::array(VEXO_TYPE_U8, many).fits());
    EXPECT_TRUE(Argument::real(1).fits());
}

TEST(WireRequest, CountsSetPointsToAHundredThousand) {
    EXPECT_EQ(next_sequence(0), 1u);
    EXPECT_EQ(next_sequence(99999), 100000u);
    EXPECT_EQ(next_sequence(100000), 1u);
}

}  // namespace
}  // namespace test
