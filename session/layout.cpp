#include "session/layout.h"

#include <algorithm>
#include <cstring>

#include "session/error.h"
#include "session/nearest_name.h"

namespace vexo::session {

std::optional<Layout> Layout::make(const Catalogue& catalogue, uint32_t kinds,
                                   const std::vector<std::string>& names, size_t offset,
                                   size_t most, VexoSessionError& error) {
    Layout layout;
    for (const std::string& name : names) {
        const Entry* entry = catalogue.find(kinds, name);
        if (entry == nullptr) {
            error = catalogue.unknown(kinds, name);
            return std::nullopt;
        }
        VexoSessionVariable field = describe(*entry);
        if (field.bytes == 0) {
            error = failure(VEXO_SESSION_WRONG_TYPE, "\"%s\" has the type %u, which is not known",
                            field.name, field.type);
            return std::nullopt;
        }
        field.offset = static_cast<uint32_t>(offset + layout.bytes_);
        field.index = static_cast<uint32_t>(layout.fields_.size());
        layout.bytes_ += field.bytes;
        layout.names_.emplace(name, layout.fields_.size());
        layout.fields_.push_back(field);
    }
    if (layout.bytes_ > most) {
        error = failure(VEXO_SESSION_TOO_LARGE, "the values take %zu bytes, and a package %zu",
                        layout.bytes_, most);
        return std::nullopt;
    }
    return layout;
}

const VexoSessionVariable* Layout::find(std::string_view name) const {
    const auto found = names_.find(name);
    return found != names_.end() ? &fields_[found->second] : nullptr;
}

VexoSessionError Layout::unknown(std::string_view name) const {
    std::vector<std::string_view> names;
    for (const VexoSessionVariable& field : fields_) {
        names.emplace_back(field.name);
    }
    return unknown_name(name, "among these variables", names);
}

bool Layout::same(const Layout& other) const {
    return std::equal(fields_.begin(), fields_.end(), other.fields_.begin(), other.fields_.end(),
                      [](const VexoSessionVariable& a, const VexoSessionVariable& b) {
                          return a.type == b.type && a.kind == b.kind &&
                                 std::strcmp(a.name, b.name) == 0;
                      });
}

}  // namespace vexo::session
