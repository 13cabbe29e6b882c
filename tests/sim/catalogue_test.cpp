// What a simulator publishes: the built-in catalogue and one from JSON.
#include "sim/catalogue.h"

#include <gtest/gtest.h>

#include <set>
#include <stdexcept>

#include "tests/sim/peer.h"

namespace {

using test::Bench;

constexpr const char* small_catalogue = R"({
  "outputs": [{"name": "ab", "id": 258, "type": 11}, {"name": "c", "id": 16909060, "type": 13}],
  "inputs":  [{"name": "xyz", "id": 7, "type": 1}],
  "methods": [{"name": "go", "id": 513}, {"name": "servoJ", "id": 65535}]
})";

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

TEST(Page, CarriesLengthsNamesIdsAndTypes) {
    sim::Options options;
    options.catalogue = sim::Catalogue::from_json(small_catalogue);
    Bench bench(options);
    const std::pair<const char*, const char*> cases[] = {
        {"07 00 52 00 00 00 00",
         "17 00 52 00 00 00 00 02 02 61 62 02 01 00 00 0B 01 63 04 03 02 01 0D "},
        {"07 00 52 01 00 00 00", "0F 00 52 00 00 00 00 01 01 63 04 03 02 01 0D "},
        {"07 00 72 00 00 00 00", "11 00 72 00 00 00 00 01 03 78 79 7A 07 00 00 00 01 "},
        {"07 00 4D 00 00 00 00",
         "16 00 4D 00 00 00 00 02 02 67 6F 01 02 06 73 65 72 76 6F 4A FF FF "},
        // behind the end
        {"07 00 52 02 00 00 00", "08 00 52 00 00 00 00 00 "},
        {"07 00 72 FF FF FF FF", "08 00 72 00 00 00 00 00 "},
    };
    for (const auto& [request, reply] : cases) {
        EXPECT_EQ(bench.io.ask(request), reply);
    }
}

TEST(JsonCatalogue, ComesBackAsItWasWritten) {
    const std::string json = sim::Catalogue::built_in().to_json();
    EXPECT_EQ(sim::Catalogue::from_json(json).to_json(), json);
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
