#include "client/output_store.h"

#include <algorithm>
#include <ctime>

#include "base/cancellation.h"
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
            const CancellationHold hold;  // the caller is within a lock
            const timespec nap{0, 20000};
            nanosleep(&nap, nullptr);
        }
    }
}

void copy_store(std::span<const uint8_t> store, std::span<uint8_t> buffer) {
    size_t length = racing_u16(store.data());
    if (buffer.size() < length) {
        length = buffer.empty() ? 0 : buffer.size() - 1;
    }
    racing_copy(buffer.data(), store.data(), std::min(length, store.size()));
}

}  // namespace

void store_claimed(Store buffer, std::span<const uint8_t> bytes, size_t claimed) {
    const size_t size = std::min(bytes.size(), buffer.size());
    const size_t end = std::min(claimed, buffer.size());
    racing_copy(buffer.data(), bytes.data(), size);
    if (size < end) {
        racing_clear(buffer.data() + size, end - size);
    }
}

void show_package(Store store, StoreSequence& sequence, std::span<const uint8_t> bytes,
                  size_t claimed) {
    const Writing writing(sequence);
    store_claimed(store, bytes, claimed);
}

void clear_store(Store store, StoreSequence& sequence) {
    const Writing writing(sequence);
    racing_clear(store.data(), store.size());
}

void read_package(std::span<const uint8_t> store, const StoreSequence& sequence,
                  std::span<uint8_t> buffer) {
    uint32_t before = 0;
    do {
        before = settled(sequence);
        copy_store(store, buffer);
    } while (sequence.load(std::memory_order_relaxed) != before);
}

}  // namespace vexo
