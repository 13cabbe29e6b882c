#include "sim/fault_book.h"

#include <algorithm>

namespace sim {

namespace {

size_t times(const Fault& fault) {
    const bool many = fault.every > 0 || fault.chance < 100 || fault.lasts != kForever;
    return fault.times.value_or(many ? Fault::kAlways : 1);
}

// The protocol version that a request asks for.
bool asks_for(BytesView request, uint16_t version) {
    Reader in(request);
    in.bytes(2);
    const bool negotiates = in.number<uint8_t>() == 'V';
    return in.number<uint16_t>() == version && in.ok() && negotiates;
}

bool matches(const Fault& fault, const Passing& message) {
    return fault.target == message.target && !fault.link_total &&
           (!fault.port || fault.befalls_controller() || *fault.port == message.port) &&
           (fault.letter == 0 || fault.letter == message.letter) &&
           (fault.method.empty() || fault.method == message.method) &&
           (!fault.version || asks_for(message.request, *fault.version));
}

}  // namespace

double share(std::minstd_rand& random) {
    return static_cast<double>(random() - std::minstd_rand::min()) /
           static_cast<double>(std::minstd_rand::max());
}

void FaultBook::add(Fault fault, Clock::time_point now) {
    const size_t left = times(fault);
    if (left > 0) {
        const auto from = after(now, fault.at);
        entries_.push_back({std::move(fault), from, Clock::time_point::max(), left});
        Entry& entry = entries_.back();
        entry.until = after(from, entry.fault.lasts);
    }
}

bool FaultBook::is_hit(Entry& entry) {
    const Fault& fault = entry.fault;
    ++entry.seen;
    return entry.seen > fault.skip &&
           (fault.every == 0 || (entry.seen - fault.skip) % fault.every == 0) &&
           (fault.chance >= 100 || share(entry.random) * 100 < fault.chance);
}

Fault FaultBook::use(std::list<Entry>::iterator entry) {
    Fault met = entry->fault;
    met.delay += std::chrono::duration_cast<Span>(met.jitter * share(entry->random));
    met.seed = static_cast<uint32_t>(entry->random());
    if (entry->left != Fault::kAlways && --entry->left == 0) {
        entries_.erase(entry);
    }
    return met;
}

std::optional<Fault> FaultBook::meet(const Passing& message, Clock::time_point now) {
    std::erase_if(entries_, [now](const Entry& entry) { return entry.until <= now; });
    const auto found = std::ranges::find_if(entries_, [&](Entry& entry) {
        return entry.from <= now && matches(entry.fault, message) && is_hit(entry);
    });
    return found != entries_.end() ? std::optional(use(found)) : std::nullopt;
}

std::optional<Fault> FaultBook::meet_total(Target target, size_t begin, size_t end) {
    const auto found = std::ranges::find_if(entries_, [&](const Entry& entry) {
        const auto total = entry.fault.link_total;
        return entry.fault.target == target && total && *total >= begin && *total < end;
    });
    if (found == entries_.end()) {
        return std::nullopt;
    }
    Fault met = use(found);
    met.link_after = *met.link_total - begin;
    return met;
}

// One that happens again does so after the same time.
std::optional<Fault> FaultBook::due(Clock::time_point now) {
    const auto found = std::ranges::find_if(entries_, [now](const Entry& entry) {
        return entry.fault.target == Target::controller && entry.from <= now;
    });
    if (found == entries_.end()) {
        return std::nullopt;
    }
    found->from = after(found->from, std::max(found->fault.at, Span(1)));
    return use(found);
}

Clock::time_point FaultBook::next_due() const {
    auto next = Clock::time_point::max();
    for (const Entry& entry : entries_) {
        if (entry.fault.target == Target::controller) {
            next = std::min(next, entry.from);
        }
    }
    return next;
}

}  // namespace sim
