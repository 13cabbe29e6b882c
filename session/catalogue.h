// What a controller offers, as it was read once: never changed afterwards, so that any thread may
// look at it.
#ifndef SESSION_CATALOGUE_H
#define SESSION_CATALOGUE_H

#include <array>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "session/object.h"
#include "session/session.h"

namespace vexo::session {

struct Entry {
    uint32_t kind;  // a VexoSessionKind
    std::string name;
    uint32_t id;
    uint8_t type;

    bool operator==(const Entry&) const = default;
};

class Catalogue final : public Object {
public:
    // The most entries that a list may have.
    static constexpr size_t kMostEntries = 65536;

    // While it is read: entries in the order of the lists, then complete().
    bool add(Entry entry);
    void complete();

    bool same(const Catalogue& other) const { return lists_ == other.lists_; }

    // The list of one kind; empty for anything else.
    std::span<const Entry> list(uint32_t kind) const;
    // Null when there is no such name. Kinds are looked through in their order.
    const Entry* find(uint32_t kinds, std::string_view name) const;
    // The nearest first.
    std::vector<const Entry*> nearest(uint32_t kinds, std::string_view name, size_t count) const;
    // An UNKNOWN_NAME that tells the nearest.
    VexoSessionError unknown(uint32_t kinds, std::string_view name) const;

private:
    std::vector<const Entry*> entries(uint32_t kinds) const;

    static constexpr size_t kLists = 3;
    std::array<std::vector<Entry>, kLists> lists_;
    std::array<std::unordered_map<std::string_view, const Entry*>, kLists> names_;
};

VexoSessionVariable describe(const Entry& entry);

}  // namespace vexo::session

#endif
