// One application thread: reads the latest package of a handle each millisecond, and says of each
// cycle that is late who was.
#ifndef SOAK_READER_H
#define SOAK_READER_H

#include <atomic>
#include <deque>
#include <thread>
#include <vector>

#include "session/lateness.h"
#include "soak/probe.h"

namespace soak {

using vexo::session::Lateness;

// Those of the session, and one more for a package that never came.
constexpr uint32_t kLost = VEXO_SESSION_CAUSES;
constexpr uint32_t kCauses = kLost + 1;

inline const char* cause_name(uint32_t cause) {
    return cause == kLost ? "lost" : vexo_session_cause_name(cause);
}

// A package is due when the peer sends it in time; a cycle looks for it half a period later.
constexpr Nanoseconds kSlack = kMillisecond / 2;

struct LateCycle {
    size_t controller;
    uint32_t counter;
    uint32_t cause;
    Lateness lateness;
};

class Reader {
public:
    Reader(size_t controller, uint32_t handle, const PeerRecord& peer);
    ~Reader() { stop(); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    void stop();

    uint64_t cycles() const { return cycles_; }
    uint64_t torn() const { return torn_; }
    uint64_t backwards() const { return backwards_; }
    Nanoseconds longest_read() const { return longest_read_; }
    const std::array<uint64_t, kCauses>& late() const { return late_; }
    const std::vector<LateCycle>& late_cycles() const { return late_cycles_; }
    // How many packages took so many microseconds from the peer to the store.
    const std::vector<uint32_t>& transits() const { return transits_; }

private:
    struct Pending {
        uint32_t counter;
        Nanoseconds woken_late;
    };

    void run();
    bool wait_for_stream();
    void cycle(uint32_t counter);
    uint32_t read();
    void settle();
    void take_transit(uint32_t counter);
    Nanoseconds due(uint32_t counter) const;
    Lateness lateness_of(const Pending& pending, const Stored& stored) const;
    void add_late(uint32_t counter, uint32_t cause, const Lateness& lateness);

    size_t controller_;
    uint32_t handle_;
    const PeerRecord& peer_;
    const Arrivals& arrivals_;
    std::vector<uint8_t> package_;
    uint32_t latest_ = 0;
    Nanoseconds first_due_ = 0;  // when package 0 would have been due
    std::deque<Pending> pending_;
    uint64_t cycles_ = 0;
    uint64_t torn_ = 0;
    uint64_t backwards_ = 0;
    Nanoseconds longest_read_ = 0;
    std::array<uint64_t, kCauses> late_{};
    std::vector<LateCycle> late_cycles_;
    std::vector<uint32_t> transits_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

}  // namespace soak

#endif
