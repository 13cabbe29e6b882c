// The TCP connection of a controller's port that is there now: both directions, in order.
#ifndef TOOLS_CAPTURE_CONNECTION_H
#define TOOLS_CAPTURE_CONNECTION_H

#include <functional>

#include "tools/capture/reassembly.h"

namespace capture {

class Connection {
public:
    // `begun` is called when a new connection begins that the capture sees from its first byte.
    Connection(ByteSink& to_controller, ByteSink& from_controller, SegmentCounters& counters,
               std::function<void()> begun)
        : to_(to_controller, counters),
          from_(from_controller, counters),
          begun_(std::move(begun)) {}

    void take(const Segment& segment, bool from_controller, int64_t time_ns);
    void finish(int64_t time_ns);

private:
    bool is_this(const Endpoint& client, const Segment& segment, int64_t time_ns);

    Reassembly to_;
    Reassembly from_;
    std::function<void()> begun_;
    Endpoint client_;
    uint32_t first_ = 0;     // sequence number that the client began with
    int64_t last_time_ = 0;  // of a segment; 0: there is no connection
};

}  // namespace capture

#endif
