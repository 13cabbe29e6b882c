#include "session/open_recipe.h"

#include "session/structure.h"

namespace vexo::session {

bool copy_names(const char* const* names, uint32_t count, std::vector<std::string>& list) {
    // The count is a number of 16 bits on its way to the controller.
    if (names == nullptr || count == 0 || count > UINT16_MAX) {
        return false;
    }
    for (uint32_t i = 0; i < count; ++i) {
        if (names[i] == nullptr) {
            return false;
        }
        list.emplace_back(names[i]);
    }
    return true;
}

VexoSessionError why_not(const Robot& robot) {
    if (robot.closed.load()) {
        return failure(VEXO_SESSION_CLOSED, "the session was closed");
    }
    const VexoSessionError& met = robot.standing.error;
    return met.code == VEXO_SESSION_OK
               ? failure(VEXO_SESSION_TIMED_OUT, "not in time; the session is %s",
                         vexo_session_state_name(robot.standing.state))
               : failure(VEXO_SESSION_TIMED_OUT, "not in time; the session is %s: %.180s",
                         vexo_session_state_name(robot.standing.state), met.cause);
}

std::optional<Layout> layout_when_known(Robot& robot, uint32_t kinds,
                                        const std::vector<std::string>& names, size_t offset,
                                        size_t most, Nanoseconds deadline,
                                        VexoSessionError& error) {
    Ref<Catalogue> catalogue;
    {
        const std::lock_guard lock(robot.monitor);
        robot.monitor.wait_until(deadline, [&] { return robot.closed.load() || robot.catalogue; });
        catalogue = robot.catalogue;
        if (!catalogue || robot.closed.load()) {
            error = why_not(robot);
            return std::nullopt;
        }
    }
    return Layout::make(*catalogue, kinds, names, offset, most, error);
}

int32_t give_field(const Layout& layout, uint32_t index, VexoSessionVariable* field) {
    if (field == nullptr || index >= layout.fields().size() ||
        !give(field, layout.fields()[index])) {
        return tell(VEXO_SESSION_BAD_ARGUMENT, "there is no field %u, or no room for it", index);
    }
    return VEXO_SESSION_OK;
}

int32_t give_field(const Layout& layout, const char* name, VexoSessionVariable* field) {
    if (name == nullptr || field == nullptr) {
        return tell_null("an argument");
    }
    const VexoSessionVariable* found = layout.find(name);
    if (found == nullptr) {
        return tell(layout.unknown(name));
    }
    return give(field, *found)
               ? VEXO_SESSION_OK
               : tell(VEXO_SESSION_BAD_ARGUMENT, "the size of the field is not set");
}

}  // namespace vexo::session
