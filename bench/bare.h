// What the limits are made of: system calls, and no more than they need around them.
#ifndef BENCH_BARE_H
#define BENCH_BARE_H

#include <atomic>
#include <string>

#include "bench/wire.h"

namespace bench {

int connect_bare(const std::string& address, int port);

// Waits until a socket may be written to or read from, as the library's exchange does, 5 ms at
// most.
bool ready_to_send(int fd);
bool ready_to_receive(int fd);

// A request and its reply.
void ask(int fd, const Bytes& request);

// The latest package, published under a sequence count: odd while it is written.
class BareStore {
public:
    void put(const void* package, size_t size) {
        sequence_.store(sequence_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        std::atomic_thread_fence(std::memory_order_release);
        std::memcpy(package_, package, size);
        sequence_.fetch_add(1, std::memory_order_release);
    }
    void get(void* buffer, size_t size) const {
        uint32_t before = 0;
        do {
            while ((before = sequence_.load(std::memory_order_acquire)) % 2 != 0) {
            }
            std::memcpy(buffer, package_, size);
            std::atomic_thread_fence(std::memory_order_acquire);
        } while (sequence_.load(std::memory_order_relaxed) != before);
    }

private:
    std::atomic<uint32_t> sequence_{0};
    uint8_t package_[1440] = {};
};

}  // namespace bench

#endif
