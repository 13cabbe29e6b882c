// What opening a stream and opening inputs have in common.
#ifndef SESSION_OPEN_RECIPE_H
#define SESSION_OPEN_RECIPE_H

#include <mutex>
#include <optional>

#include "session/error.h"
#include "session/robot.h"
#include "session/stream.h"

namespace vexo::session {

// The names as texts. False: there is none, or one is null.
bool copy_names(const char* const* names, uint32_t count, std::vector<std::string>& list);

// The fields of these names, as soon as a catalogue has been read. Otherwise empty, with the error.
std::optional<Layout> layout_when_known(Robot& robot, uint32_t kinds,
                                        const std::vector<std::string>& names, size_t offset,
                                        size_t most, Nanoseconds deadline, VexoSessionError& error);

// A wait that has ended without what it was for: why.
VexoSessionError why_not(const Robot& robot);

// Waits until the recipe, which is wanted already, stands, and lets `accept` take it then, which
// says whether it could. The monitor is held meanwhile.
template <typename Recipe, typename Accept>
int32_t await_recipe(Robot& robot, Recipe& recipe, Nanoseconds deadline, Accept accept) {
    robot.wake();
    const std::lock_guard lock(robot.monitor);
    const auto stands = [&] {
        return recipe.progress == Progress::standing &&
               robot.standing.state >= VEXO_SESSION_STATE_READY;
    };
    robot.monitor.wait_until(deadline, [&] {
        return robot.closed.load() || recipe.progress == Progress::failed || stands();
    });
    if (recipe.progress == Progress::failed) {
        return tell(recipe.error);
    }
    if (!stands() || robot.closed.load()) {
        return tell(why_not(robot));
    }
    return accept() ? VEXO_SESSION_OK : tell(VEXO_SESSION_NO_MEMORY, "there is no free handle");
}

int32_t give_field(const Layout& layout, uint32_t index, VexoSessionVariable* field);
int32_t give_field(const Layout& layout, const char* name, VexoSessionVariable* field);

}  // namespace vexo::session

#endif
