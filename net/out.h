// Results that a caller may leave out.
#ifndef NET_OUT_H
#define NET_OUT_H

#include <type_traits>

namespace vexo {

// Stores `value` for the caller, unless the caller passed null in place of the result.
template <typename T>
void store(T* place, std::type_identity_t<T> value) {
    if (place != nullptr) {
        *place = value;
    }
}

}  // namespace vexo

#endif
