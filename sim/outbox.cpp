#include "sim/outbox.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace sim {

void Outbox::append(std::vector<Item> message) {
    for (Item& item : message) {
        if (!items_.empty()) {
            item.due = std::max(item.due, items_.back().due);
        }
        waiting_ += item.data.size();
        items_.push_back(std::move(item));
    }
}

void Outbox::add(std::vector<Item> message, const Fault& fault) {
    if (fault.swapped && aside_.empty()) {
        aside_ = std::move(message);
        return;
    }
    append(std::move(message));
    append(std::exchange(aside_, {}));
    if (awaited_ > 0) {
        --awaited_;
    } else if (fault.burst > 1) {
        awaited_ = fault.burst - 1;
    }
}

Break Outbox::flush(Clock::time_point now, const Send& send) {
    blocked_ = false;
    while (awaited_ == 0 && !items_.empty() && items_.front().due <= now) {
        Item& item = items_.front();
        const ssize_t sent = item.data.empty() ? 0 : send(item.data);
        if (sent < 0 && errno != EAGAIN) {
            return Break::close;
        }
        const size_t gone = sent > 0 ? static_cast<size_t>(sent) : 0;
        waiting_ -= gone;
        if (gone < item.data.size()) {
            item.data.erase(item.data.begin(), item.data.begin() + static_cast<ptrdiff_t>(gone));
            blocked_ = true;
            return Break::none;
        }
        const Break then = item.then;
        items_.pop_front();
        if (then != Break::none) {
            return then;
        }
    }
    return Break::none;
}

Clock::time_point Outbox::next() const {
    const bool waits = items_.empty() || blocked_ || awaited_ > 0;
    return waits ? Clock::time_point::max() : items_.front().due;
}

}  // namespace sim
