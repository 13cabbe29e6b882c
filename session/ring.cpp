#include "session/ring.h"

#include <sys/mman.h>

#include <algorithm>

#include "base/racing_copy.h"

namespace vexo::session {

Ring::~Ring() {
    if (memory_ != nullptr) {
        munmap(memory_, bytes_);
    }
}

bool Ring::allocate(size_t record_size, size_t capacity) {
    bytes_ = record_size * capacity;
    void* memory = mmap(nullptr, bytes_, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    if (memory == MAP_FAILED) {
        return false;
    }
    memory_ = static_cast<uint8_t*>(memory);
    record_size_ = record_size;
    capacity_ = capacity;
    return true;
}

uint8_t* Ring::begin() {
    const uint64_t number = newest_.load(std::memory_order_relaxed) + 1;
    claimed_.store(number, std::memory_order_seq_cst);
    return memory_ + (number % capacity_) * record_size_;
}

void Ring::publish() {
    newest_.store(claimed_.load(std::memory_order_relaxed), std::memory_order_release);
    published_.tell();
    armed_.set_off();
}

void Ring::wake() {
    published_.tell();
    armed_.set_off();
}

// A few behind the very oldest: the writer is about to overwrite that.
uint64_t Ring::oldest() const {
    const uint64_t newest_number = newest();
    const uint64_t kept = capacity_ - std::min<size_t>(capacity_ / 8 + 1, 16);
    return newest_number > kept ? newest_number - kept + 1 : 1;
}

size_t Ring::read(uint64_t& next, uint8_t* into, size_t count, uint64_t& lost) const {
    for (;;) {
        const uint64_t first =
            next + capacity_ <= claimed_.load(std::memory_order_acquire) ? oldest() : next;
        lost += first - next;
        next = first;
        const uint64_t newest_number = newest();
        if (newest_number < first) {
            return 0;
        }
        const size_t available = std::min<uint64_t>(count, newest_number - first + 1);
        const size_t before_end = capacity_ - first % capacity_;
        const size_t front = std::min<size_t>(available, before_end);
        racing_copy(into, record(first), front * record_size_);
        racing_copy(into + front * record_size_, memory_, (available - front) * record_size_);
        // Only what was not being overwritten while it was copied counts.
        if (first + capacity_ > claimed_.load(std::memory_order_acquire)) {
            next += available;
            return available;
        }
    }
}

bool Ring::read_newest(uint8_t* into) const {
    for (;;) {
        const uint64_t number = newest();
        if (number == 0) {
            return false;
        }
        racing_copy(into, record(number), record_size_);
        if (number + capacity_ > claimed_.load(std::memory_order_acquire)) {
            return true;
        }
    }
}

void Ring::arm(Ref<Alarm> alarm, uint64_t number) {
    armed_.add(alarm);
    if (newest() >= number) {
        alarm->ring();
    }
}

}  // namespace vexo::session
