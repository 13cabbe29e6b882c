// What the catalogue holds, for callers.
#include <mutex>

#include "session/error.h"
#include "session/robot.h"
#include "session/structure.h"

using namespace vexo::session;

namespace {

constexpr uint32_t kAllKinds = VEXO_SESSION_OUTPUT | VEXO_SESSION_INPUT | VEXO_SESSION_METHOD;

Ref<Catalogue> catalogue_of(Robot& robot) {
    const std::lock_guard lock(robot.monitor);
    return robot.catalogue;
}

// Calls `act` with the catalogue that was read last.
template <typename Act>
int32_t with_catalogue(VexoSession* session, Act act) {
    const CallOn<Robot> robot(session, HandleKind::session);
    if (!robot) {
        return tell_closed();
    }
    const Ref<Catalogue> catalogue = catalogue_of(*robot);
    return catalogue ? act(*catalogue)
                     : tell(VEXO_SESSION_NOT_CONNECTED, "no catalogue has been read yet");
}

VexoSessionVariable describe_in(const Catalogue& catalogue, const Entry& entry) {
    VexoSessionVariable variable = describe(entry);
    variable.index = static_cast<uint32_t>(&entry - catalogue.list(entry.kind).data());
    return variable;
}

int32_t no_room() {
    return tell(VEXO_SESSION_BAD_ARGUMENT,
                "there is no room for the entry, or its size is not set");
}

}  // namespace

extern "C" int32_t vexo_session_entry(VexoSession* session, uint32_t kind, uint32_t index,
                                      VexoSessionVariable* entry) {
    return with_catalogue(session, [=](const Catalogue& catalogue) {
        const auto list = catalogue.list(kind);
        if (index >= list.size()) {
            return tell(VEXO_SESSION_BAD_ARGUMENT, "there is no entry %u", index);
        }
        return entry != nullptr && give(entry, describe_in(catalogue, list[index]))
                   ? VEXO_SESSION_OK
                   : no_room();
    });
}

extern "C" int32_t vexo_session_find(VexoSession* session, uint32_t kinds, const char* name,
                                     VexoSessionVariable* entry) {
    return with_catalogue(session, [=](const Catalogue& catalogue) {
        if (name == nullptr) {
            return tell_null("the name");
        }
        const Entry* found = catalogue.find(kinds & kAllKinds, name);
        if (found == nullptr) {
            return tell(catalogue.unknown(kinds & kAllKinds, name));
        }
        return entry != nullptr && give(entry, describe_in(catalogue, *found)) ? VEXO_SESSION_OK
                                                                               : no_room();
    });
}

extern "C" int32_t vexo_session_nearest(VexoSession* session, uint32_t kinds, const char* name,
                                        VexoSessionVariable* entries, uint32_t capacity) {
    return with_catalogue(session, [=](const Catalogue& catalogue) {
        if (name == nullptr || entries == nullptr || capacity == 0) {
            return tell_null("the name, or the room for entries,");
        }
        const uint32_t stride = entries->size;
        int32_t count = 0;
        auto* to = reinterpret_cast<uint8_t*>(entries);
        for (const Entry* entry : catalogue.nearest(kinds & kAllKinds, name, capacity)) {
            auto* place =
                reinterpret_cast<VexoSessionVariable*>(to + static_cast<size_t>(count) * stride);
            place->size = stride;
            if (!give(place, describe_in(catalogue, *entry))) {
                return no_room();
            }
            ++count;
        }
        return count;
    });
}
