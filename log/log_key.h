// What the log needs from above: which file the lines of a handle go to.
#ifndef LOG_LOG_KEY_H
#define LOG_LOG_KEY_H

#include <cstdint>

namespace vexo {

constexpr int kLogKeySize = 64;

// The key of a registered handle (its controller's address), or null. Defined by the registry.
const char* log_key(uint32_t handle);

}  // namespace vexo

#endif
