// Set-points and other calls over the control connection, or in raw frames, with or without waiting
// for the acknowledgement. The calling thread does it all by itself.
#ifndef SESSION_CONTROL_PORT_H
#define SESSION_CONTROL_PORT_H

#include "session/connection.h"
#include "session/reply_buffer.h"
#include "session/statistics.h"

namespace vexo::session {

enum class Outcome {
    acknowledged,
    not_awaited,
    timed_out,  // sent, and not acknowledged in time
    no_turn,    // another thread's call lasts; nothing was sent
    no_room,    // nothing was sent
    broken,
};

struct Answer {
    uint8_t status = 0;
    std::span<const uint8_t> payload;  // until the next exchange
};

// One for each connection. Acknowledgements do not say what they acknowledge, so their order does:
// those that were not awaited, or came too late, are owed, and are taken before that of the next.
class ControlPort final : public Object {
public:
    ControlPort(Ref<Connection> connection, Statistics& statistics)
        : connection_(std::move(connection)),
          statistics_(statistics),
          frame_(new uint8_t[wire::kEthernetHeader + ReplyBuffer::kLongest]) {}

    // Exchanges follow one another: the caller holds the turn from before the message is built.
    bool take_turn(Nanoseconds deadline) { return turn_.lock_until(deadline); }
    bool try_turn() { return turn_.try_lock(); }
    void end_turn() { turn_.unlock(); }

    // Where a message is to be built; in front of it there is room for a frame's header.
    std::span<uint8_t> message_room() {
        return {frame_.get() + wire::kEthernetHeader, ReplyBuffer::kLongest};
    }

    struct Manner {
        Nanoseconds deadline = 0;
        bool wait = true;
        bool in_frame = false;     // as a raw frame
        Nanoseconds patience = 0;  // how long answers may come without one being told for certain
        uint32_t measure = VEXO_SESSION_MEASURE_SET_POINT;
    };
    // Sends what was built there, `size` bytes.
    Outcome exchange(size_t size, const Manner& manner, Answer& answer);

    // Takes the acknowledgements that have come and are owed. Gives the status of the last that is
    // not 0 to `refused`. Returns how many came.
    size_t collect(size_t& refused, uint8_t& status);

private:
    Sent send(size_t size, bool in_frame);
    Outcome await(const Manner& manner, Answer& answer);
    bool receive(bool from_frames);
    std::span<const uint8_t> next_reply(bool from_frames);
    std::span<const uint8_t> next_in_frames();
    void drop_owed(bool from_frames);
    enum class Waited { readable, too_long, ended };
    Waited wait_readable(bool from_frames, Nanoseconds deadline) const;
    Outcome too_late(const Manner& manner, bool doubtful);
    Outcome out_of_step();

    const Ref<Connection> connection_;
    Statistics& statistics_;
    Mutex turn_;
    // What follows is guarded by the turn.
    std::unique_ptr<uint8_t[]> frame_;
    ReplyBuffer replies_;
    std::array<uint8_t, 2048> received_frame_{};
    std::span<const uint8_t> frame_reply_;
    int32_t last_frame_ = -1;  // its sequence number
    size_t owed_ = 0;
    bool owed_in_frames_ = false;
    Nanoseconds doubt_since_ = 0;
};

}  // namespace vexo::session

#endif
