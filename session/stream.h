// What a session streams: the recipe, where its values lie, and the ring that they go to. It
// outlives cuts.
#ifndef SESSION_STREAM_H
#define SESSION_STREAM_H

#include <string>
#include <vector>

#include "session/clock_estimate.h"
#include "session/handle_table.h"
#include "session/layout.h"
#include "session/ring.h"

namespace vexo::session {

class Robot;

// How far the set-up of something that the application wants has come. Guarded by the session's
// monitor.
enum class Progress {
    wanted,    // never set up yet
    standing,  // was set up; after a cut it will be again
    failed,    // and will not be tried again
};

struct StreamOptions {
    uint32_t header_word = 0;
    double ring_s = 0;
    Nanoseconds period = 0;  // 0: not known
    std::string counter_variable;
    std::string time_variable;
    double time_unit_s = 1;
};

class Stream final : public Object {
public:
    Stream(Ref<Robot> robot, std::vector<std::string> names, StreamOptions options, Layout layout);

    const Ref<Robot> robot;
    const std::vector<std::string> names;
    const StreamOptions options;
    const Layout layout;
    const VexoSessionVariable* const counter;  // null: none
    const VexoSessionVariable* const time;

    Ring ring;
    ClockEstimate clock;

    // Guarded by the session's monitor.
    Progress progress = Progress::wanted;
    VexoSessionError error{};
    std::vector<Handle> cursors;

    std::atomic<bool> closed{false};
    std::atomic<bool> failed{false};  // its variables are not what they were

    // Its variables are not what they were. The monitor is held.
    void fail(const VexoSessionError& why);
    // Ends it for its readers.
    void close();
};

// Closes a cursor and wakes its reader.
void close_cursor(Handle handle);

}  // namespace vexo::session

#endif
