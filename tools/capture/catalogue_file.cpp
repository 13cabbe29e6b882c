#include "tools/capture/catalogue_file.h"

#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace capture {
namespace {

using Json = nlohmann::json;

void take(const Json& entry, Variable& variable) {
    entry.at("name").get_to(variable.name);
    entry.at("id").get_to(variable.id);
    entry.at("type").get_to(variable.type);
}

void take(const Json& entry, Method& method) {
    entry.at("name").get_to(method.name);
    entry.at("id").get_to(method.id);
}

template <typename Entry>
void take_list(const Json& document, const char* key, std::vector<Entry>& list) {
    for (const Json& entry : document.value(key, Json::array())) {
        take(entry, list.emplace_back());
    }
}

}  // namespace

Catalogue read_catalogue_file(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error("The catalogue " + path + " cannot be read");
    }
    try {
        const Json document = Json::parse(file);
        Catalogue catalogue;
        take_list(document, "outputs", catalogue.outputs);
        take_list(document, "inputs", catalogue.inputs);
        take_list(document, "methods", catalogue.methods);
        return catalogue;
    } catch (const Json::exception& error) {
        throw std::runtime_error("The catalogue " + path + " makes no sense: " + error.what());
    }
}

}  // namespace capture
