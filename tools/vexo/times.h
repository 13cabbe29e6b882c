// Points in time as the tool prints them.
#ifndef TOOLS_VEXO_TIMES_H
#define TOOLS_VEXO_TIMES_H

#include <cstdint>
#include <string>

namespace tool {

// RFC 3339 in UTC with nanoseconds, of nanoseconds since the epoch.
std::string rfc3339(int64_t realtime_ns);

int64_t realtime_now_ns();

}  // namespace tool

#endif
