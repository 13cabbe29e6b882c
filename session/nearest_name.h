// How far a name is from what somebody has typed.
#ifndef SESSION_NEAREST_NAME_H
#define SESSION_NEAREST_NAME_H

#include <cstdint>
#include <string_view>

namespace vexo::session {

// 0: the same but for case; less is nearer. A name that contains the other comes before all others,
// then the number of letters to insert, drop, change or swap counts.
uint32_t name_distance(std::string_view typed, std::string_view name);

}  // namespace vexo::session

#endif
