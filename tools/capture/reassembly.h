// Puts the segments of one direction of a TCP connection in order, and tells what came twice from
// what is missing.
#ifndef TOOLS_CAPTURE_REASSEMBLY_H
#define TOOLS_CAPTURE_REASSEMBLY_H

#include <map>
#include <vector>

#include "tools/capture/packet.h"

namespace capture {

// Takes a byte stream as it becomes complete.
class ByteSink {
public:
    virtual ~ByteSink() = default;
    // The next bytes, which came in one segment. They are there since `time_ns`.
    virtual void bytes(Bytes bytes, int64_t time_ns) = 0;
    // As many bytes more passed by, and nobody saw them.
    virtual void gap(size_t count) = 0;
};

// Of all connections together.
struct SegmentCounters {
    uint64_t resent = 0;     // sent again: came before, or was lost on its way before the capture
    uint64_t reordered = 0;  // overtaken by later ones
    uint64_t unseen = 0;     // bytes that the receiver has, and the capture does not
};

class Reassembly {
public:
    Reassembly(ByteSink& sink, SegmentCounters& counters) : sink_(sink), counters_(counters) {}

    // A new connection, whose first byte has this number. Said again, it changes nothing.
    void begin(uint32_t sequence);
    // The sender has said that it sends nothing from this number on.
    void end(uint32_t sequence) { end_ = unwrapped(sequence); }
    // Bytes that came; of `length` all that is behind the payload was not captured.
    void take(uint32_t sequence, Bytes payload, size_t length, int64_t time_ns);
    // The receiver has everything in front of this number.
    void acknowledge(uint32_t sequence, int64_t time_ns);
    // Nothing more will come: what is missing stays so.
    void finish(int64_t time_ns);

private:
    struct Piece {
        std::vector<uint8_t> payload;
        size_t length = 0;
    };

    static size_t cost_of(const Piece& piece);
    int64_t unwrapped(uint32_t sequence) const;
    void count_old(int64_t begin, size_t length, int64_t time_ns);
    void hold(int64_t begin, Bytes payload, size_t length, int64_t time_ns);
    void deliver(Bytes payload, size_t length, int64_t time_ns);
    void deliver_new(int64_t begin, Bytes payload, size_t length, int64_t time_ns);
    void deliver_held(int64_t time_ns);
    void give_up_where_due(int64_t time_ns);
    void give_up(int64_t time_ns);

    ByteSink& sink_;
    SegmentCounters& counters_;
    bool begun_ = false;
    uint32_t first_ = 0;
    int64_t end_ = 0;           // of the stream
    int64_t next_ = 0;          // number of the next byte to deliver, without wrapping
    int64_t acknowledged_ = 0;  // the same of what the receiver has
    int64_t ahead_since_ = 0;   // since when that is ahead of what was captured
    bool has_acknowledged_ = false;
    std::map<int64_t, Piece> held_;  // behind what is missing
    size_t held_bytes_ = 0;
    int64_t held_since_ = 0;
};

}  // namespace capture

#endif
