#include "tools/capture/connection.h"

namespace capture {
namespace {

// A controller has one client at a time. One whose begin was not captured takes the place of
// another that has been silent for so long.
constexpr int64_t kSilent = 1'000'000'000;

}  // namespace

void Connection::take(const Segment& segment, bool from_controller, int64_t time_ns) {
    const Endpoint& client = from_controller ? segment.destination : segment.source;
    if (!is_this(client, segment, time_ns)) {
        return;
    }
    last_time_ = time_ns;
    Reassembly& own = from_controller ? from_ : to_;
    Reassembly& other = from_controller ? to_ : from_;
    if (segment.begins) {
        own.begin(segment.sequence + 1);
    } else {
        own.take(segment.sequence, segment.payload, segment.length, time_ns);
        if (segment.ends) {
            own.end(segment.sequence + static_cast<uint32_t>(segment.length));
        }
    }
    if (segment.acknowledges) {
        other.acknowledge(segment.acknowledged, time_ns);
    }
}

// Whether the segment belongs to the connection that is followed, or to one that follows it.
bool Connection::is_this(const Endpoint& client, const Segment& segment, int64_t time_ns) {
    const bool opens = segment.begins && !segment.acknowledges;
    if (client == client_ && !(opens && segment.sequence != first_)) {
        return true;
    }
    if (!opens && last_time_ != 0 && time_ns - last_time_ < kSilent) {
        return false;
    }
    finish(time_ns);
    client_ = client;
    if (opens) {
        first_ = segment.sequence;
        begun_();
    }
    return true;
}

void Connection::finish(int64_t time_ns) {
    to_.finish(time_ns);
    from_.finish(time_ns);
}

}  // namespace capture
