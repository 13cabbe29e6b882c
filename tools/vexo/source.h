// Where values come from. Commands that only look take packages from here, whoever receives them.
#ifndef TOOLS_VEXO_SOURCE_H
#define TOOLS_VEXO_SOURCE_H

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "session/session.h"
#include "tools/vexo/commands.h"

namespace tool {

using TimePoint = std::chrono::steady_clock::time_point;

// A package: a record as sessions lay it out, with the values where the fields' offsets say. It
// stands until the next one is taken.
struct Row {
    const VexoSessionPackage* package;
    int64_t age_ns;     // since its arrival, when it was taken
    uint64_t lost;      // directly before it, on the way or because it was taken too late
    uint64_t late = 0;  // of these: taken too late
};

class Source {
public:
    Source() = default;
    virtual ~Source() = default;
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    // What stands in each package, in the order asked for.
    virtual const std::vector<VexoSessionVariable>& fields() const = 0;

    // Waits for the next package. Nothing comes any more when `end` has passed, the source is at
    // its end, or the user interrupts. Throws a Failure when none has come for --timeout.
    virtual std::optional<Row> next(TimePoint end) = 0;
};

// What the global options name, with packages of these variables.
std::unique_ptr<Source> open_source(Context& context, const std::vector<std::string>& names);

}  // namespace tool

#endif
