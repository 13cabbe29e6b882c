// Descriptors of the library: closed on exec, and never those of the standard streams.
#ifndef SESSION_DESCRIPTOR_H
#define SESSION_DESCRIPTOR_H

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace vexo::session {

inline int above_standard(int descriptor) {
    if (descriptor < 0 || descriptor > STDERR_FILENO) {
        return descriptor;
    }
    const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int cause = errno;
    close(descriptor);
    errno = cause;
    return moved;
}

}  // namespace vexo::session

#endif
