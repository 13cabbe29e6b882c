#include "sim/outbox.h"

#include <cerrno>

namespace sim {

void Outbox::add(Item item) {
    if (!items_.empty()) {
        item.due = std::max(item.due, items_.back().due);
    }
    waiting_ += item.data.size();
    items_.push_back(std::move(item));
}

Outbox::Result Outbox::flush(Clock::time_point now, const Send& send) {
    blocked_ = false;
    while (!items_.empty() && items_.front().due <= now) {
        Item& item = items_.front();
        const ssize_t sent = item.data.empty() ? 0 : send(item.data);
        if (sent < 0 && errno != EAGAIN) {
            return Result::failed;
        }
        const size_t gone = sent > 0 ? static_cast<size_t>(sent) : 0;
        waiting_ -= gone;
        if (gone < item.data.size()) {
            item.data.erase(item.data.begin(), item.data.begin() + static_cast<ptrdiff_t>(gone));
            blocked_ = true;
            return Result::waits;
        }
        const Break then = item.then;
        items_.pop_front();
        if (then != Break::none) {
            return then == Break::close ? Result::closes : Result::resets;
        }
    }
    return items_.empty() ? Result::done : Result::waits;
}

std::optional<Clock::time_point> Outbox::next() const {
    return items_.empty() || blocked_ ? std::nullopt : std::optional(items_.front().due);
}

}  // namespace sim
