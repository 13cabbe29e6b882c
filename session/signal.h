// Lets threads wait for what another thread does without a lock. Whoever does it pays for a system
// call only when somebody waits.
#ifndef SESSION_SIGNAL_H
#define SESSION_SIGNAL_H

#include <atomic>

#include "session/time.h"

namespace vexo::session {

class Signal {
public:
    // Something has changed.
    void tell() {
        count_.fetch_add(1);
        if (waiting_.load() != 0) {
            wake_all();
        }
    }

    // Waits until the condition holds. Returns whether it does.
    template <typename Condition>
    bool wait_until(Nanoseconds deadline, Condition holds) const {
        while (!holds()) {
            waiting_.fetch_add(1);
            const uint32_t seen = count_.load();
            if (!holds()) {
                sleep(seen, deadline);
            }
            waiting_.fetch_sub(1);
            if (monotonic_ns() >= deadline) {
                return holds();
            }
        }
        return true;
    }

private:
    void wake_all() const;
    void sleep(uint32_t seen, Nanoseconds deadline) const;

    std::atomic<uint32_t> count_{0};
    mutable std::atomic<uint32_t> waiting_{0};
};

}  // namespace vexo::session

#endif
