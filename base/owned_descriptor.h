// A descriptor that is closed on every way out of a function but the successful one.
#ifndef BASE_OWNED_DESCRIPTOR_H
#define BASE_OWNED_DESCRIPTOR_H

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace vexo {

class OwnedDescriptor {
public:
    explicit OwnedDescriptor(int fd) : fd_(fd) {}
    OwnedDescriptor(const OwnedDescriptor&) = delete;
    OwnedDescriptor& operator=(const OwnedDescriptor&) = delete;

    // Closing leaves errno alone: it holds the failure that the caller is to see.
    ~OwnedDescriptor() {
        if (fd_ >= 0) {
            const int cause = errno;
            close(fd_);
            errno = cause;
        }
    }

    explicit operator bool() const { return fd_ >= 0; }
    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }

private:
    int fd_;
};

}  // namespace vexo

#endif
