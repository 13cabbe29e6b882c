// The fields of a recipe: their names, types and places. Never changed once it is made.
#ifndef SESSION_LAYOUT_H
#define SESSION_LAYOUT_H

#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "session/catalogue.h"

namespace vexo::session {

class Layout {
public:
    // The fields in the order of the names, the first one at `offset`. Otherwise empty, with what
    // is wrong in `error`: a name that is none of `kinds`, a type that is not known, more than
    // `most` bytes of values.
    static std::optional<Layout> make(const Catalogue& catalogue, uint32_t kinds,
                                      const std::vector<std::string>& names, size_t offset,
                                      size_t most, VexoSessionError& error);

    const std::vector<VexoSessionVariable>& fields() const { return fields_; }
    size_t bytes() const { return bytes_; }
    // Null when there is no such name; the first when it is there twice.
    const VexoSessionVariable* find(std::string_view name) const;
    // The same fields; their ids may differ.
    bool same(const Layout& other) const;

private:
    std::vector<VexoSessionVariable> fields_;
    std::unordered_map<std::string, size_t> names_;
    size_t bytes_ = 0;
};

}  // namespace vexo::session

#endif
