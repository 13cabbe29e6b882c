// Structures of the interface, which begin with the size that the caller knows of.
#ifndef SESSION_STRUCTURE_H
#define SESSION_STRUCTURE_H

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace vexo::session {

// As much of the value as the caller knows of. False when its size cannot be one.
template <typename Structure>
bool give(Structure* to, const Structure& value) {
    const uint32_t size = to->size;
    if (size < sizeof size) {
        return false;
    }
    std::memcpy(to, &value, std::min<size_t>(size, sizeof value));
    to->size = size;
    return true;
}

// What the caller filled in, and zeros for what it does not know of; all zeros for null. False when
// its size cannot be one.
template <typename Structure>
bool take(Structure& to, const Structure* from) {
    to = {};
    if (from == nullptr) {
        return true;
    }
    const uint32_t size = from->size;
    if (size < sizeof size) {
        return false;
    }
    std::memcpy(&to, from, std::min<size_t>(size, sizeof to));
    return true;
}

}  // namespace vexo::session

#endif
