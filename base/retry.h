// A system call that goes on after a signal handler has run.
#ifndef BASE_RETRY_H
#define BASE_RETRY_H

#include <cerrno>

namespace vexo {

// Makes the call again while it fails with EINTR. Returns its result; errno is the last call's.
template <typename Call>
auto retry_interrupted(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

}  // namespace vexo

#endif
