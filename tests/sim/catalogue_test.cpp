// What a simulator publishes: the built-in catalogue, one from JSON, and the pages of both.
#include "sim/catalogue.h"

#include <gtest/gtest.h>

#include <set>
#include <stdexcept>

#include "tests/sim/peer.h"

namespace {

using test::Bench;
using test::operator+;
using test::word;

constexpr const char* small_catalogue = R"({
  "outputs": [{"name": "ab", "id": 258, "type": 11}, {"name": "c", "id": 16909060, "type": 13}],
  "inputs":  [{"name": "xyz", "id": 7, "type": 1}],
  "methods": [{"name": "go", "id": 513}, {"name": "servoJ", "id": 65535}]
})";

sim::Options with(sim::Catalogue catalogue) {
    sim::Options options;
    options.catalogue = std::move(catalogue);
    return options;
}

sim::Catalogue numbered(size_t outputs, size_t inputs, size_t methods) {
    sim::Catalogue catalogue;
    for (uint32_t i = 0; i < outputs; ++i) {
        catalogue.outputs.push_back({"output_" + std::to_string(i), i, sim::Type::u32});
    }
    for (uint32_t i = 0; i < inputs; ++i) {
        catalogue.inputs.push_back({"input_" + std::to_string(i), 10000 + i, sim::Type::u8});
    }
    for (uint32_t i = 0; i < methods; ++i) {
        catalogue.methods.push_back({"method_" + std::to_string(i), static_cast<uint16_t>(i)});
    }
    return catalogue;
}

// The names of a list, fetched page by page until a page is not full.
std::vector<std::string> fetch(test::Peer& io, char letter, size_t page_size) {
    const size_t tail = letter == 'M' ? 2 : 5;
    std::vector<std::string> names;
    for (;;) {
        io.send(test::bytes("07 00") + test::Bytes{static_cast<uint8_t>(letter)} +
                test::bytes(word(static_cast<uint32_t>(names.size()))));
        const test::Bytes page = io.message();
        size_t at = 8;
        for (unsigned i = 0; i < page.at(7); ++i) {
            const uint8_t length = page.at(at);
            names.emplace_back(page.begin() + static_cast<ptrdiff_t>(at) + 1,
                               page.begin() + static_cast<ptrdiff_t>(at) + 1 + length);
            at += 1 + length + tail;
        }
        EXPECT_EQ(at, page.size());
        if (page[7] < page_size) {
            return names;
        }
    }
}

template <typename Entry>
std::vector<std::string> names_of(const std::vector<Entry>& list) {
    std::vector<std::string> names;
    for (const Entry& entry : list) {
        names.push_back(entry.name);
    }
    return names;
}

template <typename Entry>
void expect_publishable(const std::vector<Entry>& list, size_t least) {
    std::set<std::string> names;
    std::set<uint32_t> ids;
    EXPECT_GE(list.size(), least);
    EXPECT_NE(list.size() % 10, 0U) << "a client would wait for more pages";
    for (const Entry& entry : list) {
        EXPECT_LT(entry.name.size(), 100U);
        EXPECT_TRUE(names.insert(entry.name).second) << entry.name;
        EXPECT_TRUE(ids.insert(entry.id).second) << entry.name;
    }
}

}  // namespace

TEST(BuiltInCatalogue, CanBeReadByAnyClient) {
    const sim::Catalogue catalogue = sim::Catalogue::built_in();
    expect_publishable(catalogue.outputs, 230);
    expect_publishable(catalogue.inputs, 60);
    expect_publishable(catalogue.methods, 60);
    std::set<sim::Type> types;
    for (const sim::Variable& output : catalogue.outputs) {
        types.insert(output.type);
    }
    EXPECT_GE(types.size(), 17U);
}

struct PageSize {
    const char* version;
    size_t entries;
};
class Pages : public ::testing::TestWithParam<PageSize> {};

TEST_P(Pages, HoldTheWholeCatalogueInOrder) {
    for (const sim::Catalogue& catalogue :
         {sim::Catalogue::built_in(), numbered(1999, 999, 2999)}) {
        Bench bench(with(catalogue));
        bench.io.ask("0B 00 56 " + std::string(GetParam().version) + " 00 00 00 00 00 00 00");
        const size_t size = GetParam().entries;
        EXPECT_EQ(fetch(bench.io, 'R', size), names_of(catalogue.outputs));
        EXPECT_EQ(fetch(bench.io, 'r', size), names_of(catalogue.inputs));
        EXPECT_EQ(fetch(bench.io, 'M', size), names_of(catalogue.methods));
    }
}

INSTANTIATE_TEST_SUITE_P(Versions, Pages,
                         ::testing::Values(PageSize{"01", 10}, PageSize{"02", 200},
                                           PageSize{"03", 200}));

TEST(Page, CarriesLengthsNamesIdsAndTypes) {
    Bench bench(with(sim::Catalogue::from_json(small_catalogue)));
    EXPECT_EQ(bench.io.ask("07 00 52 00 00 00 00"),
              "17 00 52 00 00 00 00 02 02 61 62 02 01 00 00 0B 01 63 04 03 02 01 0D ");
    EXPECT_EQ(bench.io.ask("07 00 52 01 00 00 00"),
              "0F 00 52 00 00 00 00 01 01 63 04 03 02 01 0D ");
    EXPECT_EQ(bench.io.ask("07 00 72 00 00 00 00"),
              "11 00 72 00 00 00 00 01 03 78 79 7A 07 00 00 00 01 ");
    EXPECT_EQ(bench.io.ask("07 00 4D 00 00 00 00"),
              "16 00 4D 00 00 00 00 02 02 67 6F 01 02 06 73 65 72 76 6F 4A FF FF ");
}

TEST(Page, BehindTheEndIsEmpty) {
    Bench bench(with(numbered(20, 0, 1)));
    const std::string empty = "08 00 52 00 00 00 00 00 ";
    EXPECT_EQ(bench.io.ask("07 00 52 14 00 00 00"), empty);
    EXPECT_EQ(bench.io.ask("07 00 52 FF FF FF FF"), empty);
    EXPECT_EQ(bench.io.ask("07 00 72 00 00 00 00"), "08 00 72 00 00 00 00 00 ");
}

TEST(JsonCatalogue, ComesBackAsItWasWritten) {
    const sim::Catalogue before = sim::Catalogue::built_in();
    const sim::Catalogue after = sim::Catalogue::from_json(before.to_json());
    EXPECT_EQ(names_of(after.outputs), names_of(before.outputs));
    EXPECT_EQ(names_of(after.inputs), names_of(before.inputs));
    EXPECT_EQ(names_of(after.methods), names_of(before.methods));
    EXPECT_EQ(after.to_json(), before.to_json());
}

TEST(JsonCatalogue, TellsWhatIsWrongWithIt) {
    const std::pair<const char*, const char*> cases[] = {
        {"{", "parse error"},
        {"[]", "not an object"},
        {R"({"outputs": 3})", "outputs is not a list"},
        {R"({"inputs": [{"id": 1, "type": 1}]})", "an entry of inputs has no name"},
        {R"({"outputs": [{"name": "a", "id": -1, "type": 1}]})", "a needs \"id\""},
        {R"({"outputs": [{"name": "a", "id": 1, "type": 256}]})", "a needs \"type\""},
        {R"({"methods": [{"name": "a", "id": 65536}]})", "a needs \"id\""},
        {R"({"methods": [{"name": "a", "id": 1}, {"name": "b", "id": 1}]})", "b has the id"},
    };
    for (const auto& [json, expected] : cases) {
        try {
            sim::Catalogue::from_json(json);
            ADD_FAILURE() << json;
        } catch (const std::invalid_argument& error) {
            EXPECT_NE(std::string(error.what()).find(expected), std::string::npos) << error.what();
        }
    }
}
