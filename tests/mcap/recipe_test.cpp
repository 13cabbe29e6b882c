// Values as CDR: the bytes, by hand, and every type there and back.
#include <gtest/gtest.h>

#include <cmath>

#include "tools/mcap/recipe.h"

using mcap::Bytes;
using mcap::Recipe;

TEST(Recipe, MakesAlignedFieldsOfPackedValues) {
    Recipe recipe;
    recipe.add("flag", VEXO_TYPE_BOOL);
    recipe.add("speed of it", VEXO_TYPE_F64);
    recipe.add("2nd", VEXO_TYPE_U16);
    recipe.add("2nd", VEXO_TYPE_3F32);
    recipe.add("text", VEXO_TYPE_TEXT);
    EXPECT_EQ(recipe.schema(),
              "bool flag\nfloat64 speed_of_it\nuint16 v_2nd\nfloat32[3] v_2nd_2\nstring text\n");

    Bytes values(recipe.bytes());
    const double speed = 1.5;
    const float three[] = {1, 2, 3};
    values[0] = 7;  // any value but 0 is true
    std::memcpy(&values[1], &speed, sizeof speed);
    values[9] = 0x34;
    values[10] = 0x12;
    std::memcpy(&values[11], three, sizeof three);
    std::memcpy(&values[23], "ab", 2);
    const Bytes expected = {
        0,    1,    0,    0,                                             // plain CDR, little-endian
        1,    0,    0,    0,    0,   0,   0,    0,                       // flag, and up to 8
        0,    0,    0,    0,    0,   0,   0xF8, 0x3F,                    // 1.5
        0x34, 0x12, 0,    0,                                             // 0x1234, and up to 4
        0,    0,    0x80, 0x3F, 0,   0,   0,    0x40, 0, 0, 0x40, 0x40,  // 1, 2, 3
        3,    0,    0,    0,    'a', 'b', 0,                             // with its zero
    };
    Bytes cdr;
    recipe.encode(values.data(), cdr);
    EXPECT_EQ(cdr, expected);
    for (size_t size = 0; size < cdr.size(); ++size) {
        EXPECT_FALSE(recipe.decode(mcap::View(cdr).first(size), values.data())) << size;
    }
}

TEST(Recipe, BringsEveryTypeBack) {
    Recipe recipe;
    for (uint32_t type = VEXO_TYPE_CHAR; type <= VEXO_TYPE_TEXT; ++type) {
        recipe.add("of " + std::string(mcap::type_name(type)), type);
    }
    const Recipe again = Recipe::from_text(recipe.to_text());
    EXPECT_EQ(again.schema(), recipe.schema());
    EXPECT_EQ(again.to_text(), recipe.to_text());
    Bytes values(recipe.bytes());
    for (size_t i = 0; i < values.size(); ++i) {
        values[i] = static_cast<uint8_t>(i % 255 + 1);
    }
    values[1] = 1;  // the boolean
    Bytes cdr;
    recipe.encode(values.data(), cdr);
    EXPECT_LE(cdr.size(), recipe.most_cdr_bytes());
    Bytes back(values.size());
    EXPECT_TRUE(again.decode(cdr, back.data()));
    EXPECT_EQ(back, values);
    EXPECT_THROW(recipe.add("no type", VEXO_TYPE_ARRAY), std::invalid_argument);
    EXPECT_THROW(Recipe::from_text("f65 x"), std::invalid_argument);
}
