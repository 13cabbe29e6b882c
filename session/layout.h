// The fields of a recipe: their names, types and places. Never changed once it is made.
#ifndef SESSION_LAYOUT_H
#define SESSION_LAYOUT_H

#include <functional>
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
    // An UNKNOWN_NAME that tells the nearest.
    VexoSessionError unknown(std::string_view name) const;
    // The same fields; their ids may differ.
    bool same(const Layout& other) const;

private:
    // Looks up without a copy of the name.
    struct Hash : std::hash<std::string_view> {
        using is_transparent = void;
    };

    std::vector<VexoSessionVariable> fields_;
    std::unordered_map<std::string, size_t, Hash, std::equal_to<>> names_;
    size_t bytes_ = 0;
};

}  // namespace vexo::session

#endif
