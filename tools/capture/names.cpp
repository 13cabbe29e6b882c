#include "tools/capture/names.h"

#include <algorithm>

#include "wire/value_type.h"

namespace capture {
namespace {

template <typename Key>
const Variable* find_by(const Catalogue& catalogue, Key Variable::*member, const Key& key) {
    for (const auto* list : {&catalogue.outputs, &catalogue.inputs}) {
        const auto found = std::ranges::find(*list, key, member);
        if (found != list->end()) {
            return &*found;
        }
    }
    return nullptr;
}

}  // namespace

const Variable* Catalogue::find(uint32_t id) const {
    return find_by(*this, &Variable::id, id);
}

const Variable* Catalogue::find(const std::string& name) const {
    return find_by(*this, &Variable::name, name);
}

Field make_field(const std::string& name, uint8_t type, size_t offset) {
    const vexo::wire::ValueType known = vexo::wire::value_type(type);
    return {name, type, offset, known.width(), known.count};
}

bool Layout::add(const Variable* variable) {
    if (variable == nullptr || vexo::wire::type_width(variable->type) == 0) {
        return false;
    }
    fields_.push_back(make_field(variable->name, variable->type, bytes_));
    bytes_ += fields_.back().bytes;
    return true;
}

template <typename Key>
std::shared_ptr<const Layout> Layout::make_of(const Catalogue& catalogue,
                                              const std::vector<Key>& keys) {
    auto layout = std::make_shared<Layout>();
    for (const Key& key : keys) {
        if (!layout->add(catalogue.find(key))) {
            return nullptr;
        }
    }
    return layout->bytes_ > 0 ? layout : nullptr;
}

std::shared_ptr<const Layout> Layout::make(const Catalogue& catalogue,
                                           const std::vector<uint32_t>& ids) {
    return make_of(catalogue, ids);
}

std::shared_ptr<const Layout> Layout::make(const Catalogue& catalogue,
                                           const std::vector<std::string>& names) {
    return make_of(catalogue, names);
}

const Field* Layout::find(const std::string& name) const {
    const auto found = std::ranges::find(fields_, name, &Field::name);
    return found != fields_.end() ? &*found : nullptr;
}

}  // namespace capture
