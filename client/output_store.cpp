#include "client/output_store.h"

#include <algorithm>
#include <ctime>

#include "base/racing_copy.h"

namespace vexo {

namespace {

class Writing {
public:
    explicit Writing(StoreSequence& sequence)
        : sequence_(sequence), count_(sequence.load(std::memory_order_relaxed)) {
        sequence_.store(count_ + 1, std::memory_order_relaxed);
    }
    ~Writing() { sequence_.store(count_ + 2, std::memory_order_release); }
    Writing(const Writing&) = delete;
    Writing& operator=(const Writing&) = delete;

private:
    StoreSequence& sequence_;
    uint32_t count_;
};

// The count once no write is under way. A write takes nanoseconds, unless the receive thread was
// preempted in the midst of it, perhaps by this very reader: then only sleeping lets it go on.
uint32_t settled(const StoreSequence& sequence) {
    for (int spins = 0;; ++spins) {
        const uint32_t count = sequence.load(std::memory_order_acquire);
        if (count % 2 == 0) {
            return count;
        }
        if (spins < 100) {
            __builtin_ia32_pause();
        } else {
            const timespec nap{0, 20000};
            nanosleep(&nap, nullptr);
        }
    }
}

void copy_store(const Dataspace& dataspace, uint8_t* buffer, uint32_t size) {
    size_t length = racing_u16(dataspace.output_store);
    if (size < length) {
        length = size > 0 ? size - 1 : 0;
    }
    length = std::min(length, sizeof dataspace.output_store);
    racing_copy(buffer, dataspace.output_store, length);
}

}  // namespace

void store_claimed(uint8_t (&buffer)[kBufferSize], std::span<const uint8_t> bytes, size_t claimed) {
    const size_t size = std::min(bytes.size(), sizeof buffer);
    racing_copy(buffer, bytes.data(), size);
    if (size < std::min(claimed, sizeof buffer)) {
        racing_clear(buffer + size, std::min(claimed, sizeof buffer) - size);
    }
}

void show_package(Dataspace& dataspace, StoreSequence& sequence, std::span<const uint8_t> bytes,
                  size_t claimed) {
    const Writing writing(sequence);
    store_claimed(dataspace.output_store, bytes, claimed);
}

void clear_store(Dataspace& dataspace, StoreSequence& sequence) {
    const Writing writing(sequence);
    racing_clear(dataspace.output_store, sizeof dataspace.output_store);
}

void read_package(const Dataspace& dataspace, const StoreSequence& sequence, uint8_t* buffer,
                  uint32_t size) {
    uint32_t before = 0;
    do {
        before = settled(sequence);
        copy_store(dataspace, buffer, size);
    } while (sequence.load(std::memory_order_relaxed) != before);
}

}  // namespace vexo
