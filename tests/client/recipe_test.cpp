// Without this a recipe could ask for other rows than it was given, or leave a handle out of step.
#include <cstring>

#include "tests/client/client_fixture.h"

using namespace test;
using ::testing::HasSubstr;

namespace {

// A session whose catalogue the test writes itself.
struct RecipeSession : Session {
    RecipeSession() {
        connect();
        log_init();
    }

    void set_row(size_t catalogue, uint32_t row, uint32_t id, uint8_t type) const {
        uint8_t* entry = dataspace() + catalogue + row * 108;
        write_u32(entry + 100, id);
        entry[104] = type;
    }
    void set_rows(size_t catalogue, size_t count_offset, uint32_t count, uint8_t type) const {
        for (uint32_t row = 0; row < count; ++row) {
            set_row(catalogue, row, 0x100 + row, type);
        }
        write_u32(dataspace() + count_offset, count);
    }
    uint8_t input_selected(uint32_t row) const {
        return dataspace()[kInputsOffset + row * 108 + 106];
    }
    // Type code and value length at a position of a recipe table.
    std::pair<uint32_t, uint8_t> position(size_t table, uint32_t index) const {
        const uint8_t* at = dataspace() + table + index * 108;
        return {read_u32(at + 100), at[104]};
    }
};

const Bytes kRecipe9 = bytes("08 00 4F 00 00 00 00 09");

}  // namespace

TEST(OutputRecipe, NamesOutputsAndEchoedInputs) {
    RecipeSession s;
    s.set_rows(kOutputsOffset, kOutputCountOffset, 3, 5);
    s.set_rows(kInputsOffset, kInputCountOffset, 6, 14);
    uint32_t rows[] = {2, 0x1A000005, 0};
    uint32_t id = 77;
    s.io.expect(bytes("15 00 4F 04 03 02 01 03 00 02 01 00 00 05 01 00 00 00 01 00 00"), kRecipe9);
    ASSERT_EQ(vexo_output_setup_send(s.handle, 3, rows, 0x01020304, &id), 0);
    EXPECT_EQ(id, 9U);
    EXPECT_EQ(s.member(kOutputLengthOffset), 4U + 8 + 12 + 8);
    EXPECT_EQ(s.position(kOutputRecipeOffset, 0), std::pair(5U, uint8_t{8}));
    EXPECT_EQ(s.position(kInputRecipeOffset, 1), std::pair(14U, uint8_t{12}));
    EXPECT_EQ(s.position(kOutputRecipeOffset, 1), std::pair(0U, uint8_t{0}));
    EXPECT_EQ(s.input_selected(5), 1);
    EXPECT_EQ(s.input_selected(4), 0);
    EXPECT_EQ(s.dataspace()[kOutputsOffset + 2 * 108 + 106], 0) << "outputs are not marked";
}

TEST(OutputRecipe, RefusesANegativeRowBeforeSending) {
    RecipeSession s;
    s.set_rows(kOutputsOffset, kOutputCountOffset, 3, 5);
    OutputCapture output;
    uint32_t rows[] = {1, static_cast<uint32_t>(-1)};
    uint32_t id = 77;
    EXPECT_EQ(vexo_output_setup_send(s.handle, 2, rows, 0, &id), 301);
    EXPECT_EQ(id, 77U);
    EXPECT_EQ(s.member(kOutputLengthOffset), 0U);
    const std::string text = "vexo_output_setup_send Error: The varId[1] of data was not found\n";
    EXPECT_EQ(output.text(), text);
    EXPECT_THAT(s.log(), HasSubstr(" " + text));
}

TEST(OutputRecipe, WarnsOfTooManyRowsAndOfALongPackageAndGoesOn) {
    RecipeSession s;
    s.set_rows(kOutputsOffset, kOutputCountOffset, 399, 5);
    OutputCapture output;
    std::vector<uint32_t> rows(400);
    Bytes message = bytes("49 06 4F 00 00 00 00 90 01");
    for (uint32_t i = 0; i < 400; ++i) {
        rows[i] = i == 399 ? 0 : i;
        Bytes id(4);
        write_u32(id.data(), 0x100 + rows[i]);
        message = message + id;
    }
    uint32_t id = 0;
    s.io.expect(message, kRecipe9);
    EXPECT_EQ(vexo_output_setup_send(s.handle, 400, rows.data(), 0, &id), 0);
    EXPECT_EQ(s.member(kOutputLengthOffset), 1440U);
    EXPECT_EQ(output.text(),
              "Error: output_vars_num < request_varnum\nError: recv_bytes > VEXO_RAW_MAX\n");
    const std::string log = s.log();
    EXPECT_THAT(log, HasSubstr(" Error: output_vars_num(399) < request_varnum(400)\n"));
    EXPECT_THAT(log, HasSubstr(" Error: recv_bytes(3204) > VEXO_RAW_MAX(1440)\n"));
}

TEST(OutputRecipe, TakesRowsOutsideTheCatalogueAsEmptyAndStaysInItsTables) {
    RecipeSession s;
    OutputCapture output;
    uint32_t rows[] = {2000, 0x1A0003E8, 0x7FFFFFFF};
    uint32_t id = 0;
    s.io.expect(bytes("15 00 4F 00 00 00 00 03 00 00 00 00 00 00 00 00 00 00 00 00 00"), kRecipe9);
    EXPECT_EQ(vexo_output_setup_send(s.handle, 3, rows, 0, &id), 0);
    EXPECT_EQ(s.member(kOutputLengthOffset), 4U + 3) << "type code 0 is one byte wide";

    // More rows than the recipe table has positions, and more than the request buffer holds.
    const std::vector<uint32_t> many(6000, 0);
    const uint8_t* behind = s.dataspace() + kInputRecipeOffset;
    const Bytes before(behind, behind + 1000);
    s.io.expect(Bytes{0xFD, 0x4F, 'O', 0, 0, 0, 0, 0xFD, 0x13} + Bytes(4 * 5117), kRecipe9);
    EXPECT_EQ(vexo_output_setup_send(s.handle, 6000, const_cast<uint32_t*>(many.data()), 0, &id),
              0);
    EXPECT_EQ(Bytes(behind, behind + 1000), before);
}

TEST(InputRecipe, NamesInputsAndMarksThem) {
    RecipeSession s;
    s.set_rows(kInputsOffset, kInputCountOffset, 4, 11);
    int32_t rows[] = {3, 1};
    uint32_t id = 0;
    s.io.expect(bytes("0D 00 49 02 00 03 01 00 00 01 01 00 00"), bytes("08 00 49 00 00 00 00 FF"));
    ASSERT_EQ(vexo_input_setup_send(s.handle, 2, rows, &id), 0);
    EXPECT_EQ(id, 255U);
    EXPECT_EQ(s.member(kInputLengthOffset), 16U);
    EXPECT_EQ(s.position(kInputRecipeOffset, 1), std::pair(11U, uint8_t{8}));
    EXPECT_EQ(s.input_selected(3), 1);
    EXPECT_EQ(s.input_selected(0), 0);
}

TEST(InputRecipe, RefusesTooManyAndNegativeRows) {
    RecipeSession s;
    s.set_rows(kInputsOffset, kInputCountOffset, 2, 11);
    OutputCapture output;
    int32_t rows[] = {0, -5, 1};
    uint32_t id = 0;
    EXPECT_EQ(vexo_input_setup_send(s.handle, 3, rows, &id), -1);
    EXPECT_EQ(vexo_input_setup_send(s.handle, 2, rows, &id), 301);
    EXPECT_EQ(output.text(),
              "Error: input_vars_num < varnum\n"
              "vexo_input_setup_send Error: The varId[1] of data was not found\n");
    EXPECT_EQ(s.member(kInputLengthOffset), 0U);
    s.io.expect(bytes("09 00 49 01 00 00 01 00 00"), bytes("08 00 49 00 00 00 00 01"));
    EXPECT_EQ(vexo_input_setup_send(s.handle, 65536 + 1, rows, &id), 0) << "the count is 16 bits";
    EXPECT_THAT(s.log(), HasSubstr(" Error: input_vars_num(2) < varnum(3)\n"));
}

TEST(InputRecipe, OnlyWarnsOfALongPackage) {
    RecipeSession s;
    s.set_rows(kInputsOffset, kInputCountOffset, 2, 1);
    OutputCapture output;
    const auto set_up = [&](uint32_t wide, uint32_t narrow) {
        std::vector<int32_t> rows(wide, 0);
        rows.resize(wide + narrow, 1);
        const auto count = static_cast<int32_t>(rows.size());
        s.set_rows(kInputsOffset, kInputCountOffset, static_cast<uint32_t>(count), 1);
        s.set_row(kInputsOffset, 0, 0x100, 13);
        ScriptedPeer::Step step{Bytes(5 + 4 * rows.size()), {}, ScriptedPeer::After::keep};
        step.request = {static_cast<uint8_t>(step.request.size()), 0, 'I',
                        static_cast<uint8_t>(count), 0};
        for (const int32_t row : rows) {
            step.request.push_back(static_cast<uint8_t>(row));
            step.request = step.request + bytes("01 00 00");
        }
        step.reply = {{bytes("08 00 49 00 00 00 00 01"), {}}};
        s.io.expect(step);
        uint32_t id = 0;
        return vexo_input_setup_send(s.handle, count, rows.data(), &id);
    };
    EXPECT_EQ(set_up(29, 4), 0);
    EXPECT_EQ(s.member(kInputLengthOffset), 1396U);
    EXPECT_EQ(output.text(), "");
    EXPECT_EQ(set_up(29, 5), 0);
    EXPECT_EQ(s.member(kInputLengthOffset), 1397U);
    EXPECT_EQ(output.text(), "Error: send_byte > SOCKET_RECEIVE_LEN\n");
    EXPECT_THAT(s.log(), HasSubstr(" Error: send_byte(1397) > SOCKET_RECEIVE_LEN(1400)\n"));
}

TEST(InputData, SendsOnePackageCutToTheRequestBuffer) {
    RecipeSession s;
    const Bytes values(100000, 0xAB);
    struct {
        uint32_t version;
        uint32_t length;
        int32_t recipe;
        Bytes message;
    } const cases[] = {{1, 3, 3, bytes("07 00 55 03 AB AB AB")},
                       {2, 3, 300, bytes("07 00 55 2C AB AB AB")},
                       {2, 100000, 1, bytes("00 50 55 01") + Bytes(20476, 0xAB)}};
    for (const auto& c : cases) {
        write_u32(s.dataspace() + kVersionWordOffset, c.version);
        write_u32(s.dataspace() + kInputLengthOffset, c.length);
        s.io.expect(c.message, {});
        EXPECT_EQ(vexo_input_data_send(s.handle, c.recipe, values.data()), 0);
        EXPECT_TRUE(s.io.done());
    }
}

TEST(InputData, ReportsFailures) {
    RecipeSession s;
    OutputCapture output;
    EXPECT_EQ(vexo_input_data_send(s.handle + 9999, 1, nullptr), -1);
    EXPECT_EQ(output.text(), "");

    // The raw path without an endpoint.
    write_u32(s.dataspace() + kVersionWordOffset, 0x10003);
    EXPECT_EQ(vexo_input_data_send(s.handle, 1, nullptr), 302);
    EXPECT_EQ(output.text(), "vexo_input_data_send socket_raw_applysendbuf error -100\n");

    write_u32(s.dataspace() + kVersionWordOffset, 2);
    s.io.expect({}, {}, ScriptedPeer::After::close);
    ASSERT_TRUE(s.io.done());
    ASSERT_TRUE(wait_until([&] { return vexo_input_data_send(s.handle, 1, nullptr) == 302; }));
    EXPECT_THAT(output.text(), HasSubstr("\nvexo_input_data_send send error\n"));
    const std::string log = s.log();
    EXPECT_THAT(log, HasSubstr(" vexo_input_data_send send error\n"));
    EXPECT_THAT(log, HasSubstr(" vexo_input_data_send socket_raw_applysendbuf error -100\n"));
    EXPECT_EQ(pthread_mutex_trylock(&base_datasend_mutex), 0) << "every return unlocks";
    pthread_mutex_unlock(&base_datasend_mutex);
}
