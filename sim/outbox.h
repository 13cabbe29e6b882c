// What is still to be sent on one connection, and when.
#ifndef SIM_OUTBOX_H
#define SIM_OUTBOX_H

#include <sys/types.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <optional>

#include "sim/clock.h"
#include "sim/fault.h"
#include "sim/wire.h"

namespace sim {

class Outbox {
public:
    // Beyond so many waiting bytes a client is taken not to read.
    static constexpr size_t backlog = 1 << 20;

    struct Item {
        Bytes data;
        Clock::time_point due;
        Break then = Break::none;  // how the connection ends behind the data
    };
    // Sends without waiting; what the system's send call returns.
    using Send = std::function<ssize_t(BytesView)>;
    enum class Result { done, waits, failed, closes, resets };

    // Items leave in the order in which they were added, whatever their times.
    void add(Item item);
    // Sends what is due.
    Result flush(Clock::time_point now, const Send& send);

    bool empty() const { return items_.empty(); }
    bool full() const { return waiting_ > backlog; }
    // The system took less than what was due.
    bool blocked() const { return blocked_; }
    // When to flush next, unless the outbox is empty or blocked.
    std::optional<Clock::time_point> next() const;

private:
    std::deque<Item> items_;
    size_t waiting_ = 0;
    bool blocked_ = false;
};

}  // namespace sim

#endif
