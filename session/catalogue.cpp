#include "session/catalogue.h"

#include <algorithm>
#include <bit>

#include "session/nearest_name.h"
#include "wire/value_type.h"

namespace vexo::session {

namespace {

// The lists of the kinds, in the order of their bits.
template <typename Act>
void each_list(uint32_t kinds, Act act) {
    for (uint32_t list = 0; list < 3; ++list) {
        if ((kinds & (1U << list)) != 0) {
            act(list);
        }
    }
}

// The scalar type of an element of this width.
uint32_t element_type(const wire::ValueType& type) {
    using wire::Element;
    const auto size = std::countr_zero(type.element_width);
    switch (type.element) {
        case Element::boolean:
            return VEXO_TYPE_BOOL;
        case Element::unsigned_integer:
            return static_cast<uint32_t>(VEXO_TYPE_U8 + size);
        case Element::signed_integer:
            return static_cast<uint32_t>(VEXO_TYPE_I8 + size);
        case Element::real:
            return type.element_width == sizeof(float) ? VEXO_TYPE_F32 : VEXO_TYPE_F64;
        default:
            return VEXO_TYPE_CHAR;
    }
}

}  // namespace

bool Catalogue::add(Entry entry) {
    auto& list = lists_[static_cast<size_t>(std::countr_zero(entry.kind))];
    if (list.size() == kMostEntries) {
        return false;
    }
    list.push_back(std::move(entry));
    return true;
}

void Catalogue::complete() {
    for (size_t i = 0; i < kLists; ++i) {
        names_[i].reserve(lists_[i].size());
        for (const Entry& entry : lists_[i]) {
            names_[i].emplace(entry.name, &entry);
        }
    }
}

std::span<const Entry> Catalogue::list(uint32_t kind) const {
    const auto index = static_cast<size_t>(std::countr_zero(kind));
    return std::has_single_bit(kind) && index < kLists ? std::span(lists_[index])
                                                       : std::span<const Entry>();
}

const Entry* Catalogue::find(uint32_t kinds, std::string_view name) const {
    const Entry* found = nullptr;
    each_list(kinds, [&](uint32_t list) {
        const auto entry = names_[list].find(name);
        if (found == nullptr && entry != names_[list].end()) {
            found = entry->second;
        }
    });
    return found;
}

std::vector<const Entry*> Catalogue::entries(uint32_t kinds) const {
    std::vector<const Entry*> all;
    each_list(kinds, [&](uint32_t list) {
        for (const Entry& entry : lists_[list]) {
            all.push_back(&entry);
        }
    });
    return all;
}

namespace {

std::vector<std::string_view> names_of(const std::vector<const Entry*>& entries) {
    std::vector<std::string_view> names;
    names.reserve(entries.size());
    for (const Entry* entry : entries) {
        names.push_back(entry->name);
    }
    return names;
}

}  // namespace

std::vector<const Entry*> Catalogue::nearest(uint32_t kinds, std::string_view name,
                                             size_t count) const {
    const std::vector<const Entry*> all = entries(kinds);
    std::vector<const Entry*> found;
    for (const size_t place : nearest_names(name, names_of(all), count)) {
        found.push_back(all[place]);
    }
    return found;
}

VexoSessionError Catalogue::unknown(uint32_t kinds, std::string_view name) const {
    return unknown_name(name, "in the catalogue", names_of(entries(kinds)));
}

VexoSessionVariable describe(const Entry& entry) {
    VexoSessionVariable variable{};
    variable.size = sizeof variable;
    variable.kind = entry.kind;
    entry.name.copy(variable.name, sizeof variable.name - 1);
    variable.id = entry.id;
    if (entry.kind != VEXO_SESSION_METHOD) {
        const wire::ValueType type = wire::value_type(entry.type);
        variable.type = entry.type;
        variable.bytes = static_cast<uint32_t>(type.width());
        variable.element = element_type(type);
        variable.elements = type.count;
    }
    return variable;
}

}  // namespace vexo::session
