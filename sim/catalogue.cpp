#include "sim/catalogue.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>

namespace sim {

namespace {

using Json = nlohmann::ordered_json;

[[noreturn]] void reject(const std::string& what) {
    throw std::invalid_argument("catalogue: " + what);
}

// The entries of one list; a list that is left out is empty.
std::vector<Json> entries(const Json& root, const char* list) {
    const auto found = root.find(list);
    if (found == root.end()) {
        return {};
    }
    if (!found->is_array()) {
        reject(std::string(list) + " is not a list");
    }
    return found->get<std::vector<Json>>();
}

std::string name_of(const Json& entry, const std::string& list) {
    if (!entry.is_object() || !entry.contains("name") || !entry["name"].is_string()) {
        reject("an entry of " + list + " has no name");
    }
    const auto name = entry["name"].get<std::string>();
    if (name.empty() || name.size() > 255) {
        reject("a name in " + list + " is empty or longer than 255 characters");
    }
    return name;
}

uint32_t number_of(const Json& entry, const char* key, const std::string& name, uint32_t most) {
    const auto found = entry.find(key);
    if (found == entry.end() || !found->is_number_unsigned() || found->get<uint64_t>() > most) {
        reject(name + " needs \"" + key + "\", a number from 0 to " + std::to_string(most));
    }
    return found->get<uint32_t>();
}

std::vector<Variable> variables(const Json& root, const char* list) {
    std::vector<Variable> result;
    std::set<uint32_t> ids;
    for (const Json& entry : entries(root, list)) {
        const std::string name = name_of(entry, list);
        const uint32_t id = number_of(entry, "id", name, UINT32_MAX);
        if (!ids.insert(id).second) {
            reject(name + " has the id of another entry of " + list);
        }
        result.push_back({name, id, static_cast<Type>(number_of(entry, "type", name, UINT8_MAX))});
    }
    return result;
}

std::vector<Method> methods(const Json& root) {
    std::vector<Method> result;
    std::set<uint32_t> ids;
    for (const Json& entry : entries(root, "methods")) {
        const std::string name = name_of(entry, "methods");
        const uint32_t id = number_of(entry, "id", name, UINT16_MAX);
        if (!ids.insert(id).second) {
            reject(name + " has the id of another entry of methods");
        }
        result.push_back({name, static_cast<uint16_t>(id)});
    }
    return result;
}

Json list_of(const std::vector<Variable>& variables) {
    Json list = Json::array();
    for (const Variable& variable : variables) {
        list.push_back({{"name", variable.name},
                        {"id", variable.id},
                        {"type", static_cast<unsigned>(variable.type)}});
    }
    return list;
}

}  // namespace

size_t width(Type type) {
    static constexpr uint8_t kWidths[] = {1, 1, 1,  2,  4,  8,  1,  2,  4,  8,
                                          4, 8, 24, 48, 12, 24, 24, 24, 255};
    const auto code = static_cast<size_t>(type);
    return code < sizeof kWidths ? kWidths[code] : 0;
}

void Catalogue::check() const {
    const auto fits = [](const auto& entry) { return entry.name.size() <= 255; };
    if (!std::ranges::all_of(outputs, fits) || !std::ranges::all_of(inputs, fits) ||
        !std::ranges::all_of(methods, fits)) {
        reject("a name is longer than 255 characters");
    }
}

Catalogue Catalogue::from_json(const std::string& text) {
    Json root;
    try {
        root = Json::parse(text);
    } catch (const Json::parse_error& error) {
        reject(error.what());
    }
    if (!root.is_object()) {
        reject("not an object with the lists outputs, inputs and methods");
    }
    return {variables(root, "outputs"), variables(root, "inputs"), sim::methods(root)};
}

std::string Catalogue::to_json() const {
    Json list = Json::array();
    for (const Method& method : methods) {
        list.push_back({{"name", method.name}, {"id", method.id}});
    }
    const Json root{{"outputs", list_of(outputs)}, {"inputs", list_of(inputs)}, {"methods", list}};
    return root.dump(2) + '\n';
}

}  // namespace sim
