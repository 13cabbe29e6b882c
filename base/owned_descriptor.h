// Descriptors that the library opens.
#ifndef BASE_OWNED_DESCRIPTOR_H
#define BASE_OWNED_DESCRIPTOR_H

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace vexo {

// One that is closed on every way out of a function but the successful one. It is never a standard
// stream, even where the process has closed these: what is printed must not go to a controller, and
// descriptor 0 stands for a connection that was never opened.
class OwnedDescriptor {
public:
    // Takes what a system call has opened, or its -1.
    explicit OwnedDescriptor(int fd) : fd_(fd) {
        if (fd >= 0 && fd <= STDERR_FILENO) {
            fd_ = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
            close_keeping_errno(fd);
        }
    }
    OwnedDescriptor(const OwnedDescriptor&) = delete;
    OwnedDescriptor& operator=(const OwnedDescriptor&) = delete;

    ~OwnedDescriptor() {
        if (fd_ >= 0) {
            close_keeping_errno(fd_);
        }
    }

    explicit operator bool() const { return fd_ >= 0; }
    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }

private:
    // errno holds the failure that the caller is to see.
    static void close_keeping_errno(int fd) {
        const int cause = errno;
        close(fd);
        errno = cause;
    }

    int fd_;
};

}  // namespace vexo

#endif
