// Counters that may be read at any time while others count.
#ifndef SESSION_COUNTER_H
#define SESSION_COUNTER_H

#include <atomic>
#include <cstdint>

namespace vexo::session {

// Counted by several threads.
class Counter {
public:
    void add(uint64_t more = 1) { value_.fetch_add(more, std::memory_order_relaxed); }
    uint64_t get() const { return value_.load(std::memory_order_relaxed); }

private:
    std::atomic<uint64_t> value_{0};
};

// Written by one thread, so that it costs no locked instruction.
template <typename T>
class OneWriter {
public:
    void set(T value) { value_.store(value, std::memory_order_relaxed); }
    void add(T more = 1) { set(get() + more); }
    T get() const { return value_.load(std::memory_order_relaxed); }

private:
    std::atomic<T> value_{};
};

}  // namespace vexo::session

#endif
