// A catalogue from JSON.
#include "sim/catalogue.h"

#include <gtest/gtest.h>

#include <stdexcept>

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
