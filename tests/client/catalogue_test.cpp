// Without this a catalogue could be read or indexed wrongly, or beyond what a handle holds.
#include <cstring>

#include "tests/client/client_fixture.h"

using namespace test;
using ::testing::HasSubstr;

namespace {

struct Entry {
    std::string name;
    uint32_t id;
    uint8_t type;
};

Bytes text(const std::string& characters) {
    return Bytes(characters.begin(), characters.end());
}

// A reply to 'R' or 'r', or with `methods` to 'M'.
Bytes page(const std::vector<Entry>& entries, char letter = 'R') {
    Bytes body = {static_cast<uint8_t>(letter), 0, 0, 0, 0, static_cast<uint8_t>(entries.size())};
    for (const Entry& entry : entries) {
        body = body + Bytes{static_cast<uint8_t>(entry.name.size())} + text(entry.name) +
               Bytes{static_cast<uint8_t>(entry.id), static_cast<uint8_t>(entry.id >> 8)};
        if (letter != 'M') {
            body = body + Bytes{static_cast<uint8_t>(entry.id >> 16),
                                static_cast<uint8_t>(entry.id >> 24), entry.type};
        }
    }
    const size_t length = body.size() + 2;
    return Bytes{static_cast<uint8_t>(length), static_cast<uint8_t>(length >> 8)} + body;
}

std::vector<Entry> entries(const std::string& prefix, uint32_t first, uint32_t count) {
    std::vector<Entry> made;
    for (uint32_t i = first; i < first + count; ++i) {
        made.push_back({prefix + std::to_string(i), 0x10000 + i, 5});
    }
    return made;
}

Bytes ask(char letter, uint32_t first) {
    Bytes message = {7, 0, static_cast<uint8_t>(letter), 0, 0, 0, 0};
    write_u32(message.data() + 3, first);
    return message;
}

int32_t get_outputs(uint32_t handle, uint32_t first, VexoVariablePage& into) {
    return vexo_output_variables_get(handle, first, reinterpret_cast<uint32_t*>(&into));
}

int32_t get_methods(uint32_t handle, uint32_t first, VexoMethodPage& into) {
    return vexo_control_methods_get(handle, first, reinterpret_cast<uint8_t*>(&into));
}

}  // namespace

TEST(CataloguePage, FillsTheCallersArrays) {
    Session session;
    session.negotiate(2);
    VexoVariablePage variables;
    std::memset(&variables, 0x55, sizeof variables);
    session.io.expect(ask('R', 9), bytes("16 00 52 00 00 00 00 02"
                                         " 03 61 62 63 78 56 34 12 0B"
                                         " 00 01 00 00 00 02"));
    EXPECT_EQ(get_outputs(session.handle, 9, variables), 302) << "length word one too small";
    session.io.expect(ask('R', 9), bytes("17 00 52 00 00 00 00 02"
                                         " 03 61 62 63 78 56 34 12 0B"
                                         " 00 01 00 00 00 02"));
    ASSERT_EQ(get_outputs(session.handle, 9, variables), 0);
    EXPECT_EQ(variables.count, 2);
    EXPECT_EQ(variables.reserved[0], 0x55);
    EXPECT_EQ(variables.rows[0].name_length, 3);
    EXPECT_STREQ(variables.rows[0].name, "abc");
    EXPECT_EQ(variables.rows[0].name[4], 0x55);
    EXPECT_EQ(variables.rows[0].id, 0x12345678U);
    EXPECT_EQ(variables.rows[0].type, 11);
    EXPECT_STREQ(variables.rows[1].name, "");
    EXPECT_EQ(variables.rows[1].id, 1U);
    EXPECT_EQ(variables.rows[2].name_length, 0x55);

    VexoMethodPage methods;
    std::memset(&methods, 0x55, sizeof methods);
    session.io.expect(ask('M', 0), bytes("0D 00 4D 00 00 00 00 01 02 68 69 34 12"));
    ASSERT_EQ(get_methods(session.handle, 0, methods), 0);
    EXPECT_EQ(methods.count, 1);
    EXPECT_EQ(methods.reserved, 0x55);
    EXPECT_STREQ(methods.rows[0].name, "hi");
    EXPECT_EQ(methods.rows[0].id, 0x1234);
}

TEST(CataloguePage, CutsNamesAndCountsToTheirFields) {
    Session session;
    session.negotiate(1);  // pages of 10
    VexoVariablePage variables;
    std::memset(&variables, 0x55, sizeof variables);
    std::vector<Entry> many = entries("v", 0, 11);
    many[0].name = std::string(255, 'x');
    session.io.expect(ask('R', 0), page(many));
    ASSERT_EQ(get_outputs(session.handle, 0, variables), 0);
    EXPECT_EQ(variables.count, 10);
    EXPECT_EQ(variables.rows[0].name_length, 102);
    EXPECT_EQ(variables.rows[0].name, std::string(102, 'x'));
    EXPECT_EQ(variables.rows[0].id, 0x10000U);
    EXPECT_STREQ(variables.rows[1].name, "v1") << "the next entry is read from its true place";
    EXPECT_EQ(variables.rows[10].name_length, 0x55) << "rows beyond the page are not written";

    // Entries that are counted but not there read as empty.
    session.io.expect(ask('R', 0), bytes("08 00 52 00 00 00 00 03"));
    ASSERT_EQ(get_outputs(session.handle, 0, variables), 0);
    EXPECT_EQ(variables.count, 3);
    EXPECT_STREQ(variables.rows[0].name, "");
    EXPECT_EQ(variables.rows[2].id, 0U);
}

TEST(Catalogue, TakesPagesWithMoreRowsThanAgreed) {
    Session session;
    session.negotiate(1);  // pages of 10
    session.io.expect(ask('R', 0), page(entries("out", 0, 12)));
    session.io.expect(ask('R', 12), page(entries("out", 12, 3)));
    session.io.expect(ask('r', 0), page(entries("in", 0, 9), 'r'));
    session.io.expect(ask('M', 0), page(entries("method", 0, 200), 'M'));
    session.io.expect(ask('M', 200), page(entries("method", 200, 1), 'M'));
    ASSERT_EQ(vexo_all_recipe_get(session.handle), 0);
    EXPECT_EQ(find_output_index(session.handle, "out14"), 14);
    EXPECT_EQ(find_input_index(session.handle, "in8"), 8);
    EXPECT_EQ(find_method_index(session.handle, "method200"), 200);
}

TEST(Catalogue, AsksAgainForAnEmptyPage) {
    Session session;
    session.negotiate(1);
    session.io.expect(ask('R', 0), page(entries("out", 0, 3)));
    session.io.expect(ask('r', 0), page(entries("in", 0, 3), 'r'));
    session.io.expect(ask('M', 0), page({}, 'M'));  // a transient fault
    session.io.expect(ask('M', 0), page(entries("method", 0, 2), 'M'));
    ASSERT_EQ(vexo_all_recipe_get(session.handle), 0);
    EXPECT_EQ(session.member(kMethodCountOffset), 2U);
    reset_all_hashes(session.handle);
    EXPECT_EQ(find_output_index(session.handle, "out2"), -1);
    EXPECT_EQ(build_all_hashes(session.handle), 0);
    EXPECT_EQ(find_output_index(session.handle, "out2"), 2);
    EXPECT_EQ(find_input_index(session.handle, "in1"), 1);
    EXPECT_EQ(find_method_index(session.handle, "method1"), 1);
    const uint8_t* row = session.dataspace() + kOutputsOffset + 2 * 108;
    EXPECT_STREQ(reinterpret_cast<const char*>(row), "out2");
    EXPECT_EQ(Bytes(row + 100, row + 107), bytes("02 00 01 00 05 08 00"));
}

TEST(Catalogue, FailsOnAListOfWholePagesAndKeepsWhatItHas) {
    Session session;
    session.negotiate(1);
    OutputCapture output;
    log_init();
    session.io.expect(ask('R', 0), page(entries("out", 0, 9)));
    session.io.expect(ask('r', 0), page(entries("in", 0, 10), 'r'));
    for (int i = 0; i < 4; ++i) {
        session.io.expect(ask('r', 10), page({}, 'r'));
    }
    EXPECT_EQ(vexo_all_recipe_get(session.handle), 303);
    EXPECT_EQ(output.text(), "vexo_all_recipe_get vexo_input_variables_get num is 0");
    EXPECT_EQ(find_output_index(session.handle, "out8"), 8);
    EXPECT_EQ(session.member(kInputCountOffset), 10U);
    EXPECT_EQ(find_input_index(session.handle, "in0"), -1) << "an unfinished list has no index";
    EXPECT_THAT(session.log(),
                HasSubstr(" vexo_all_recipe_get vexo_input_variables_get num is 0\n"));
}

TEST(Catalogue, PassesOnTheFailureOfAPhase) {
    Session session;
    session.negotiate(2);
    OutputCapture output;
    log_init();
    session.io.expect(ask('R', 0), bytes("07 00 52 04 00 00 00"));
    EXPECT_EQ(vexo_all_recipe_get(session.handle), 4);
    session.io.expect(ask('R', 0), page(entries("out", 0, 1)));
    session.io.expect(ask('r', 0), bytes("07 00 72 05 00 00 00"));
    EXPECT_EQ(vexo_all_recipe_get(session.handle), 5);
    session.io.expect(ask('R', 0), page(entries("out", 0, 1)));
    session.io.expect(ask('r', 0), page(entries("in", 0, 1)));
    session.io.expect(ask('M', 0), bytes("07 00 4D 06 00 00 00"));
    EXPECT_EQ(vexo_all_recipe_get(session.handle), 6);
    EXPECT_EQ(output.text(),
              "vexo_output_variables_get Error: 4\n"
              "vexo_all_recipe_get output_variables_get Error: 4\n"
              "vexo_input_variables_get Error: 5\n"
              "vexo_all_recipe_get vexo_input_variables_get Error: 5\n"
              "vexo_control_methods_get Error: 6\n"
              "vexo_all_recipe_get vexo_control_methods_get Error: 6\n");
    EXPECT_EQ(vexo_all_recipe_get(0), -1);
    session.log();
    EXPECT_THAT(read_file("vexo_sys_log_log"),
                HasSubstr(" vexo_all_recipe_get Error: vexoHandle is NULL\n"));
}

// Of a controller that always sends full pages.
TEST(Catalogue, EndsAtItsCapacityAndDropsTheRowsBeyond) {
    Session session;
    session.negotiate(2);
    log_init();
    for (const auto& [letter, pages] : {std::pair{'R', 11U}, {'r', 6U}, {'M', 16U}}) {
        for (uint32_t i = 0; i < pages; ++i) {
            session.io.expect(ask(letter, 200 * i), page(entries("row", 200 * i, 200), letter));
        }
    }
    const uint8_t* behind_inputs = session.dataspace() + kMethodsOffset;
    EXPECT_EQ(vexo_all_recipe_get(session.handle), 0);
    EXPECT_EQ(session.member(kOutputCountOffset), 2000U);
    EXPECT_EQ(session.member(kInputCountOffset), 1000U);
    EXPECT_EQ(session.member(kMethodCountOffset), 3000U);
    EXPECT_STREQ(reinterpret_cast<const char*>(behind_inputs), "row0");
    EXPECT_EQ(find_input_index(session.handle, "row999"), 999);
    EXPECT_EQ(find_input_index(session.handle, "row1000"), -1);
    std::string log = session.log();
    for (const char* capacity : {"2000", "1000", "3000"}) {
        const std::string line = "rows beyond " + std::string(capacity) + " dropped\n";
        EXPECT_THAT(log, HasSubstr(line));
        log.erase(log.find(line), line.size());
    }
    EXPECT_EQ(log.find("dropped"), std::string::npos)
        << "once, and of no page that was taken whole";
}

TEST(Types, HaveWidths) {
    const int widths[] = {1, 1, 1, 2, 4, 8, 1, 2, 4, 8, 4, 8, 24, 48, 12, 24, 24, 24, 255, 0};
    for (int type = 0; type < 20; ++type) {
        EXPECT_EQ(vexo_get_type_len(type), widths[type]) << type;
        EXPECT_EQ(vexo_get_type_len(type + 256), widths[type]) << "only the low byte counts";
    }
    EXPECT_EQ(vexo_get_type_len(-1), 0);
}
