#include "tools/capture/reassembly.h"

#include <algorithm>
#include <limits>

namespace capture {
namespace {

constexpr int64_t kMillisecond = 1'000'000;
// Packets of several queues may be captured in a slightly wrong order.
constexpr int64_t kAcknowledgedEarly = 50 * kMillisecond;
// Later than this it was sent again, and not overtaken.
constexpr int64_t kOvertaken = 3 * kMillisecond;
// Where no acknowledgements are captured: by then it would have been sent again.
constexpr int64_t kSentAgain = 2000 * kMillisecond;
constexpr size_t kMostHeld = 4 << 20;
constexpr size_t kCostOfPiece = 128;  // beside its bytes
// Nothing is sent again from further back: it is another connection, whose begin was not captured.
constexpr int64_t kFurthestBack = 64 << 20;

}  // namespace

size_t Reassembly::cost_of(const Piece& piece) {
    return piece.payload.size() + kCostOfPiece;
}

void Reassembly::begin(uint32_t sequence) {
    if (begun_ && sequence == first_) {
        return;
    }
    held_.clear();
    held_bytes_ = 0;
    first_ = sequence;
    next_ = acknowledged_ = sequence;
    end_ = std::numeric_limits<int64_t>::max();
    has_acknowledged_ = false;
    begun_ = true;
}

int64_t Reassembly::unwrapped(uint32_t sequence) const {
    return next_ + static_cast<int32_t>(sequence - static_cast<uint32_t>(next_));
}

void Reassembly::take(uint32_t sequence, Bytes payload, size_t length, int64_t time_ns) {
    if (length == 0) {
        return;
    }
    if (!begun_ || unwrapped(sequence) < next_ - kFurthestBack) {
        begun_ = false;
        begin(sequence);
    }
    const int64_t begin = unwrapped(sequence);
    if (begin > next_) {
        hold(begin, payload, length, time_ns);
    } else {
        count_old(begin, length, time_ns);
        deliver_new(begin, payload, length, time_ns);
        deliver_held(time_ns);
    }
    give_up_where_due(time_ns);
}

// Probes of a silent connection repeat its last byte.
void Reassembly::count_old(int64_t begin, size_t length, int64_t time_ns) {
    const bool probe = length == 1 && begin == next_ - 1;
    if (begin < next_ && !probe) {
        ++counters_.resent;
    } else if (begin == next_ && !held_.empty()) {
        ++(time_ns - held_since_ < kOvertaken ? counters_.reordered : counters_.resent);
    }
}

void Reassembly::hold(int64_t begin, Bytes payload, size_t length, int64_t time_ns) {
    if (held_.empty()) {
        held_since_ = time_ns;
    }
    Piece& piece = held_[begin];
    if (piece.length != 0) {
        ++counters_.resent;
    }
    if (length > piece.length) {
        held_bytes_ -= piece.length != 0 ? cost_of(piece) : 0;
        piece = {{payload.begin(), payload.end()}, length};
        held_bytes_ += cost_of(piece);
    }
}

// What of a segment is behind that which was delivered.
void Reassembly::deliver_new(int64_t begin, Bytes payload, size_t length, int64_t time_ns) {
    const auto known = static_cast<size_t>(next_ - begin);
    if (known < length) {
        deliver(payload.subspan(std::min(known, payload.size())), length - known, time_ns);
    }
}

void Reassembly::deliver(Bytes payload, size_t length, int64_t time_ns) {
    next_ += static_cast<int64_t>(length);
    if (!payload.empty()) {
        sink_.bytes(payload, time_ns);
    }
    if (length > payload.size()) {
        counters_.unseen += length - payload.size();
        sink_.gap(length - payload.size());
    }
}

void Reassembly::deliver_held(int64_t time_ns) {
    while (!held_.empty() && held_.begin()->first <= next_) {
        const auto node = held_.extract(held_.begin());
        held_bytes_ -= cost_of(node.mapped());
        deliver_new(node.key(), node.mapped().payload, node.mapped().length, time_ns);
    }
    held_since_ = time_ns;
}

void Reassembly::acknowledge(uint32_t sequence, int64_t time_ns) {
    // The end counts as a byte, too.
    const int64_t number = std::min(unwrapped(sequence), end_);
    if (!begun_) {
        return;
    }
    if (acknowledged_ <= next_ && number > next_) {
        ahead_since_ = time_ns;
    }
    acknowledged_ = std::max(acknowledged_, number);
    has_acknowledged_ = true;
    give_up_where_due(time_ns);
}

void Reassembly::give_up_where_due(int64_t time_ns) {
    const bool acknowledged = acknowledged_ > next_ && time_ns - ahead_since_ > kAcknowledgedEarly;
    const bool old = !has_acknowledged_ && !held_.empty() && time_ns - held_since_ > kSentAgain;
    if (acknowledged || old || held_bytes_ > kMostHeld) {
        give_up(time_ns);
    }
}

// What is missing up to the next piece, or up to what the receiver has, was never captured.
void Reassembly::give_up(int64_t time_ns) {
    int64_t end = held_.empty() ? acknowledged_ : held_.begin()->first;
    if (acknowledged_ > next_) {
        end = std::min(end, acknowledged_);
    }
    deliver({}, static_cast<size_t>(end - next_), time_ns);
    deliver_held(time_ns);
}

void Reassembly::finish(int64_t time_ns) {
    while (!held_.empty()) {
        give_up(time_ns);
    }
    begun_ = false;
}

}  // namespace capture
