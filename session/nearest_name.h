// Which names come near to what somebody has typed.
#ifndef SESSION_NEAREST_NAME_H
#define SESSION_NEAREST_NAME_H

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "session/session.h"

namespace vexo::session {

// 0: the same but for case; less is nearer. A name that contains the other comes before all others,
// then the number of letters to insert, drop, change or swap counts.
uint32_t name_distance(std::string_view typed, std::string_view name);

// The places of the nearest `count` names, the nearest first.
std::vector<size_t> nearest_names(std::string_view typed, std::span<const std::string_view> names,
                                  size_t count);

// An UNKNOWN_NAME, "... is not `where`", that tells the nearest three.
VexoSessionError unknown_name(std::string_view typed, const char* where,
                              std::span<const std::string_view> names);

}  // namespace vexo::session

#endif
