#include "sim/catalogue_edits.h"

#include <algorithm>
#include <stdexcept>

namespace sim {

namespace {

template <typename Action>
void for_each_list(Catalogue& catalogue, Action action) {
    action(catalogue.outputs);
    action(catalogue.inputs);
    action(catalogue.methods);
}

template <typename List, typename Action>
size_t for_each_named(List& list, const std::string& name, Action action) {
    size_t found = 0;
    for (auto& entry : list) {
        if (entry.name == name) {
            action(entry);
            ++found;
        }
    }
    return found;
}

void require(size_t found, const std::string& name) {
    if (found == 0) {
        throw std::invalid_argument("catalogue: nothing is called \"" + name + "\"");
    }
}

template <typename Entry>
auto unused_id(const std::vector<Entry>& list) {
    const auto last = std::ranges::max_element(list, {}, &Entry::id);
    return static_cast<decltype(Entry::id)>(last != list.end() ? last->id + 1 : 1);
}

}  // namespace

void rename(Catalogue& catalogue, const std::string& name, const std::string& other) {
    size_t found = 0;
    for_each_list(catalogue, [&](auto& list) {
        found += for_each_named(list, name, [&](auto& entry) { entry.name = other; });
    });
    require(found, name);
}

void retype(Catalogue& catalogue, const std::string& name, Type type) {
    const auto change = [type](Variable& variable) { variable.type = type; };
    const size_t found = for_each_named(catalogue.outputs, name, change) +
                         for_each_named(catalogue.inputs, name, change);
    require(found, name);
}

void remove(Catalogue& catalogue, const std::string& name) {
    size_t found = 0;
    for_each_list(catalogue, [&](auto& list) {
        found += std::erase_if(list, [&](const auto& entry) { return entry.name == name; });
    });
    require(found, name);
}

void renumber(Catalogue& catalogue) {
    for_each_list(catalogue, [](auto& list) {
        for (size_t i = 0; i < list.size() / 2; ++i) {
            std::swap(list[i].id, list[list.size() - 1 - i].id);
        }
    });
}

void reorder(Catalogue& catalogue) {
    for_each_list(catalogue, [](auto& list) { std::ranges::reverse(list); });
}

void fill_pages(Catalogue& catalogue, size_t page_size) {
    for_each_list(catalogue, [page_size](auto& list) {
        while (list.size() % page_size != 0) {
            const auto id = unused_id(list);
            list.push_back({.name = "filler_" + std::to_string(list.size()), .id = id});
        }
    });
}

}  // namespace sim
