// An open file descriptor that closes itself.
#ifndef SIM_DESCRIPTOR_H
#define SIM_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace sim {

class Descriptor {
public:
    explicit Descriptor(int value = -1) : value_(value) {}
    Descriptor(Descriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(value_, other.value_);
        return *this;
    }
    ~Descriptor() { reset(); }

    int get() const { return value_; }
    void reset() {
        if (value_ >= 0) {
            close(value_);
        }
        value_ = -1;
    }

private:
    int value_;
};

}  // namespace sim

#endif
