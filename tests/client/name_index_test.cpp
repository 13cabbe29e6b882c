// Without this a name could lead to a wrong row, or a list of names be read wrongly.
#include <cstring>
#include <vector>

#include "tests/client/client_fixture.h"
#include "tests/support/allocations.h"

using namespace test;
using ::testing::HasSubstr;

namespace {

struct Table {
    const char* noun;
    size_t row_size;
    int32_t pool_size;
    int32_t (*build)(uint32_t, int32_t, const void*);
    int32_t (*find)(uint32_t, const char*);
};

const Table kTables[] = {
    {"Input", 108, 1000, build_input_hash, find_input_index},
    {"Output", 108, 2000, build_output_hash, find_output_index},
    {"Method", 104, 3000, build_method_hash, find_method_index},
};

uint32_t new_handle() {
    uint32_t handle = 0;
    EXPECT_EQ(vexo_create_handle(&handle, "10.0.0.1"), 0);
    return handle;
}

std::vector<char> rows(const Table& table, const std::vector<std::string>& names) {
    std::vector<char> all(names.size() * table.row_size);
    for (size_t i = 0; i < names.size(); ++i) {
        std::memcpy(&all[i * table.row_size], names[i].data(),
                    std::min<size_t>(names[i].size(), 100));
    }
    return all;
}

int32_t build(const Table& table, uint32_t handle, const std::vector<std::string>& names) {
    return table.build(handle, static_cast<int32_t>(names.size()), rows(table, names).data());
}

}  // namespace

TEST(NameIndex, FindsExactNamesInEachTable) {
    const uint32_t handle = new_handle();
    for (const Table& table : kTables) {
        EXPECT_EQ(table.find(handle, "a"), -1) << "nothing is built yet";
        const std::string hundred(100, 'h');
        ASSERT_EQ(build(table, handle, {"a", "", "Ab", hundred + "cut", "last"}), 0);
        EXPECT_EQ(table.find(handle, "a"), 0);
        EXPECT_EQ(table.find(handle, "Ab"), 2);
        EXPECT_EQ(table.find(handle, "ab"), -1);
        EXPECT_EQ(table.find(handle, ""), -1);
        EXPECT_EQ(table.find(handle, nullptr), -1);
        EXPECT_EQ(table.find(handle, hundred.c_str()), 3);
        EXPECT_EQ(table.find(handle, (hundred + "cut").c_str()), -1);
        EXPECT_EQ(table.find(handle, "last"), 4);

        ASSERT_EQ(build(table, handle, {"new"}), 0);
        EXPECT_EQ(table.find(handle, "a"), -1) << "a build replaces the table";
        EXPECT_EQ(table.find(handle, "new"), 0);
    }
    EXPECT_EQ(reset_all_hashes(handle), 0);
    for (const Table& table : kTables) {
        EXPECT_EQ(table.find(handle, "new"), -1);
    }
}

TEST(NameIndex, FillsItsPoolAndReportsTheRowsBeyond) {
    const uint32_t handle = new_handle();
    for (const Table& table : kTables) {
        std::vector<std::string> names;
        for (int32_t i = 0; i < table.pool_size; ++i) {
            names.push_back("name" + std::to_string(i));
        }
        OutputCapture output;
        names.insert(names.begin() + 5, "");  // takes no node
        ASSERT_EQ(build(table, handle, names), 0);
        EXPECT_EQ(output.text(), "");
        names.emplace_back("beyond");
        names.emplace_back("far beyond");
        log_init();
        ASSERT_EQ(build(table, handle, names), 0);
        const std::string text = std::string("[ERROR] ") + table.noun + " hash pool overflow!\n";
        EXPECT_EQ(output.text(), text);
        EXPECT_THAT(Session::finished_log("10.0.0.1"), HasSubstr(" " + text));
        EXPECT_EQ(table.find(handle, "beyond"), -1);
        EXPECT_EQ(table.find(handle, ("name" + std::to_string(table.pool_size - 1)).c_str()),
                  table.pool_size);
    }
}

TEST(NameIndex, ReportsAnUnknownHandle) {
    struct {
        const char* function;
        int32_t (*call)();
    } const cases[] = {
        {"build_input_hash", [] { return build_input_hash(0, 0, nullptr); }},
        {"build_output_hash", [] { return build_output_hash(0, 0, nullptr); }},
        {"build_method_hash", [] { return build_method_hash(0, 0, nullptr); }},
        {"reset_all_hashes", [] { return reset_all_hashes(0); }},
        {"find_input_index", [] { return find_input_index(0, "a"); }},
        {"find_output_index", [] { return find_output_index(0, "a"); }},
        {"find_method_index", [] { return find_method_index(0, nullptr); }},
    };
    log_init();
    OutputCapture output;
    std::string expected;
    for (const auto& c : cases) {
        EXPECT_EQ(c.call(), -1);
        expected += std::string("VexoHandle is null\n") + c.function + "---VexoDatespace is NULL\n";
    }
    EXPECT_EQ(output.text(), expected);
    EXPECT_EQ(build_all_hashes(0), -1);
    const std::string log = Session::finished_log("sys_log");
    for (const auto& c : cases) {
        EXPECT_THAT(log, HasSubstr(std::string(" ") + c.function + "---VexoDatespace is NULL\n"));
    }
    EXPECT_THAT(log, HasSubstr(" build_all_hashes---VexoHandle not found\n"));
}

TEST(MultiFind, LooksUpAListOfEachKind) {
    const uint32_t handle = new_handle();
    build(kTables[0], handle, {"in", "both"});
    build(kTables[1], handle, {"x", "y", "both", "out"});
    build(kTables[2], handle, {"method"});
    const auto find = [&](const char* names, uint32_t kind) {
        std::vector<int32_t> results(8, 77);
        results.insert(results.begin(), multi_find(handle, names, kind, results.data()));
        results.resize(5);
        return results;
    };
    using Results = std::vector<int32_t>;
    EXPECT_EQ(find("both,in,out", VEXO_FIND_INPUT), (Results{3, 1, 0, -1, 77}));
    EXPECT_EQ(find("both,in,no,out", VEXO_FIND_OUTPUT), (Results{4, 2, 0x1A000000, -1, 3}));
    EXPECT_EQ(find("method", VEXO_FIND_METHOD), (Results{1, 0, 77, 77, 77}));
    EXPECT_EQ(find("x, y,y", VEXO_FIND_OUTPUT), (Results{3, 0, -1, 1, 77})) << "blanks belong";
    EXPECT_EQ(find("x,y", 3), (Results{2, 77, 77, 77, 77}));
    EXPECT_EQ(find(",x,", VEXO_FIND_OUTPUT), (Results{3, -1, 0, -1, 77}));
    EXPECT_EQ(find("", VEXO_FIND_OUTPUT), (Results{1, -1, 77, 77, 77}));
    EXPECT_EQ(multi_find(handle, nullptr, 0, nullptr), -1);
}

TEST(MultiFind, LooksAtNoMoreThanItsBuffer) {
    const uint32_t handle = new_handle();
    build(kTables[1], handle, {"a"});
    std::string names;
    for (int i = 0; i < 150000; ++i) {
        names += "a,";
    }
    std::vector<int32_t> results(150001, 77);
    EXPECT_EQ(multi_find(handle, names.c_str(), VEXO_FIND_OUTPUT, results.data()), 100000);
    EXPECT_EQ(results[99999], 0) << "the last name is cut off behind its first letter";
    EXPECT_EQ(results[100000], 77);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(MultiFind, ReportsThatThereIsNoMemory) {
    const uint32_t handle = new_handle();
    OutputCapture output;
    int32_t result = 77;
    fail_allocation(1);
    EXPECT_EQ(multi_find(handle, "a", VEXO_FIND_OUTPUT, &result), -1);
    EXPECT_EQ(result, 77);
    EXPECT_EQ(output.text(), "malloc failed\n");
}
#endif
