// What is still to be sent on one connection, and when.
#ifndef SIM_OUTBOX_H
#define SIM_OUTBOX_H

#include <sys/types.h>

#include <deque>
#include <functional>

#include "sim/clock.h"
#include "sim/fault.h"
#include "sim/wire.h"

namespace sim {

class Outbox {
public:
    // Beyond so many waiting bytes a client is taken not to read.
    static constexpr size_t kBacklog = 1 << 20;

    struct Item {
        Bytes data;
        Clock::time_point due;
        Break then = Break::none;  // how the connection ends behind the data
    };
    // Sends without waiting; what the system's send call returns.
    using Send = std::function<ssize_t(BytesView)>;

    // Messages leave in the order in which they were added, whatever their times, unless the fault
    // asks for another order or for company.
    void add(std::vector<Item> message, const Fault& fault = {});
    // Sends what is due. Returns how the connection ends now, if it does.
    Break flush(Clock::time_point now, const Send& send);

    bool empty() const { return items_.empty() && aside_.empty(); }
    bool full() const { return waiting_ > kBacklog; }
    // The system took less than what was due.
    bool blocked() const { return blocked_; }
    // When to flush next; never while the outbox is empty or waits for something else.
    Clock::time_point next() const;

private:
    void append(std::vector<Item> message);

    std::deque<Item> items_;
    std::vector<Item> aside_;  // a message that leaves behind the next one
    size_t awaited_ = 0;       // so many messages more, then all leave together
    size_t waiting_ = 0;
    bool blocked_ = false;
};

}  // namespace sim

#endif
