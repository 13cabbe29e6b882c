// A controller that publishes as much as a handle can hold.
#include "tests/end_to_end/application.h"

using namespace test;

namespace {

constexpr uint32_t kOutputs = 1999;
constexpr uint32_t kInputs = 999;
constexpr uint32_t kMethods = 2999;

// Names of many lengths, up to the 99 characters that a row holds with a final zero.
std::string long_name(const char* kind, uint32_t number) {
    std::string name = kind + std::to_string(number) + "_";
    name.resize(20 + number % 80, 'x');
    return name;
}

sim::Catalogue full_catalogue() {
    sim::Catalogue all;
    for (uint32_t i = 0; i < kOutputs; ++i) {
        all.outputs.push_back({long_name("output", i), 0x10000 + i, sim::Type(i % 19)});
    }
    for (uint32_t i = 0; i < kInputs; ++i) {
        all.inputs.push_back({long_name("input", i), 0x20000 + i, sim::Type(18 - i % 19)});
    }
    for (uint32_t i = 0; i < kMethods; ++i) {
        all.methods.push_back({long_name("method", i), static_cast<uint16_t>(i * 21)});
    }
    return all;
}

// Looks all names up at once. The rows must be 0, 1, 2, ... with `marker` set.
template <typename Entry>
void find_all(const Application& app, const std::vector<Entry>& entries, uint32_t kind,
              uint32_t marker = 0) {
    std::string names;
    for (const Entry& entry : entries) {
        names += (names.empty() ? "" : ",") + entry.name;
    }
    const std::vector<int32_t> rows = app.rows(names, kind);
    for (size_t row = 0; row < entries.size(); ++row) {
        ASSERT_EQ(static_cast<uint32_t>(rows[row]), row | marker) << entries[row].name;
    }
}

class FullCatalogue : public ::testing::TestWithParam<int64_t> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Version, FullCatalogue, ::testing::Values(1, 2));

TEST_P(FullCatalogue, IsReadAndFound) {
    sim::Options options;
    options.catalogue = full_catalogue();
    const sim::Simulator controller(on_loopback(1, options));
    Application app;
    ASSERT_NO_FATAL_FAILURE(app.connect(GetParam()));
    ASSERT_NO_FATAL_FAILURE(app.load_catalogue());
    EXPECT_EQ(app.member(kOutputCountOffset), kOutputs);
    EXPECT_EQ(app.member(kInputCountOffset), kInputs);
    EXPECT_EQ(app.member(kMethodCountOffset), kMethods);
    const uint64_t pages = GetParam() == 1 ? 200 + 100 + 300 : 10 + 5 + 15;
    EXPECT_EQ(controller.counters().requests, 1 + pages);

    find_all(app, options.catalogue.outputs, 1);
    find_all(app, options.catalogue.inputs, 0);
    find_all(app, options.catalogue.inputs, 1, VEXO_INPUT_ROW_MARKER);
    find_all(app, options.catalogue.methods, 2);
    for (uint32_t row = 0; row < kOutputs; ++row) {
        const uint8_t* entry = app.dataspace() + kOutputsOffset + row * 108;
        ASSERT_EQ(read_u32(entry + 100), 0x10000 + row);
        ASSERT_EQ(entry[104], row % 19);
        ASSERT_EQ(entry[105], vexo_get_type_len(static_cast<int32_t>(row % 19)));
    }
    for (uint32_t row = 0; row < kMethods; ++row) {
        const uint8_t* id = app.dataspace() + kMethodsOffset + row * 104 + 100;
        ASSERT_EQ(id[0] | id[1] << 8, static_cast<uint16_t>(row * 21));
    }
    EXPECT_EQ(build_all_hashes(app.handle), 0);
    find_all(app, options.catalogue.outputs, 1);
    EXPECT_EQ(app.destroy(), 0);
}
