#include "session/control_port.h"

#include <poll.h>
#include <sys/socket.h>

#include "session/error.h"

namespace vexo::session {

namespace {

// Acknowledgements that may be owed before it is plain that none will come.
constexpr size_t kMostOwed = 4096;

}  // namespace

Outcome ControlPort::exchange(size_t size, const Manner& manner, Answer& answer) {
    drop_owed(manner.in_frame);
    const Nanoseconds before = monotonic_ns();
    switch (send(size, manner.in_frame)) {
        case Sent::no_room:
            return Outcome::no_room;
        case Sent::broken:
            return Outcome::broken;
        case Sent::whole:
            break;
    }
    const bool answered = !manner.in_frame || connection_->acknowledges;
    if (!manner.wait || !answered) {
        owed_ += answered ? 1 : 0;
        return owed_ > kMostOwed ? out_of_step() : Outcome::not_awaited;
    }
    const Outcome outcome = await(manner, answer);
    if (outcome == Outcome::acknowledged) {
        statistics_.measures[manner.measure].add(monotonic_ns() - before);
    }
    return outcome;
}

Sent ControlPort::send(size_t size, bool in_frame) {
    const std::span<uint8_t> frame{frame_.get(), wire::kEthernetHeader + size};
    return in_frame ? connection_->raw->send(wire::FrameCode::set_point, frame)
                    : connection_->control->send(frame.subspan(wire::kEthernetHeader));
}

// What comes while others are owed may be theirs or ours; their order says theirs. So an answer
// that then does not come leaves a doubt.
Outcome ControlPort::await(const Manner& manner, Answer& answer) {
    bool doubtful = false;
    for (;;) {
        const std::span<const uint8_t> reply = next_reply(manner.in_frame);
        if (replies_.out_of_step()) {
            return out_of_step();
        }
        if (!reply.empty() && owed_ == 0) {
            answer.status = wire::reply_status(reply);
            answer.payload = reply.subspan(std::min(reply.size(), wire::kReplyPayload));
            doubt_since_ = 0;
            return Outcome::acknowledged;
        }
        if (!reply.empty()) {
            --owed_;
            doubtful = true;
            statistics_.late_replies.add();
        } else {
            const Waited waited = wait_readable(manner.in_frame, manner.deadline);
            if (waited == Waited::too_long) {
                return too_late(manner, doubtful);
            }
            if (waited == Waited::ended || !receive(manner.in_frame)) {
                return Outcome::broken;
            }
        }
    }
}

Outcome ControlPort::too_late(const Manner& manner, bool doubtful) {
    ++owed_;
    if (!doubtful) {
        return Outcome::timed_out;
    }
    const Nanoseconds now = monotonic_ns();
    doubt_since_ = doubt_since_ == 0 ? now : doubt_since_;
    if (now - doubt_since_ >= manner.patience) {
        connection_->give_up(failure(VEXO_SESSION_OUT_OF_STEP,
                                     "an acknowledgement is missing, so that it is not known whose "
                                     "the others are"));
    }
    return Outcome::timed_out;
}

Outcome ControlPort::out_of_step() {
    connection_->give_up(failure(VEXO_SESSION_OUT_OF_STEP,
                                 "what came over the control connection is no acknowledgement"));
    return Outcome::broken;
}

// The socket that acknowledgements come on; with frames also the end of the connection, which a
// packet socket does not know of.
ControlPort::Waited ControlPort::wait_readable(bool from_frames, Nanoseconds deadline) const {
    const Nanoseconds left = deadline - monotonic_ns();
    if (left <= 0) {
        return Waited::too_long;
    }
    pollfd polled[] = {
        {from_frames ? connection_->raw->descriptor() : connection_->control->descriptor(), POLLIN,
         0},
        {connection_->io->descriptor(), POLLRDHUP, 0},
    };
    const timespec limit = to_timespec(left);
    if (ppoll(polled, from_frames ? 2 : 1, &limit, nullptr) == 0) {
        return Waited::too_long;
    }
    return polled[0].revents == 0 && polled[1].revents != 0 ? Waited::ended : Waited::readable;
}

// Takes what has come. False: the connection has ended.
bool ControlPort::receive(bool from_frames) {
    if (from_frames) {
        const ssize_t got = recv(connection_->raw->descriptor(), received_frame_.data(),
                                 received_frame_.size(), MSG_DONTWAIT);
        if (got < 0) {
            return true;
        }
        const auto frame =
            wire::open_ethernet_frame(std::span(received_frame_).first(static_cast<size_t>(got)));
        const bool doubled = frame.sequence == last_frame_;
        if (frame.fault == wire::FrameFault::none && !doubled) {
            last_frame_ = frame.sequence;
            frame_reply_ = frame.payload;
        }
        return true;
    }
    const std::span<uint8_t> room = replies_.room();
    const ssize_t got =
        recv(connection_->control->descriptor(), room.data(), room.size(), MSG_DONTWAIT);
    if (got > 0) {
        replies_.received(static_cast<size_t>(got));
    }
    return got > 0 || (got < 0 && (errno == EAGAIN || errno == EINTR));
}

std::span<const uint8_t> ControlPort::next_reply(bool from_frames) {
    return from_frames ? std::exchange(frame_reply_, {}) : replies_.next();
}

// Those that are there before the next is sent cannot be its own.
void ControlPort::drop_owed(bool from_frames) {
    size_t refused = 0;
    uint8_t status = 0;
    if (owed_ > 0 && from_frames == owed_in_frames_) {
        statistics_.late_replies.add(collect(refused, status));
    }
    owed_in_frames_ = from_frames;
}

size_t ControlPort::collect(size_t& refused, uint8_t& status) {
    size_t came = 0;
    while (owed_ > 0) {
        const std::span<const uint8_t> reply = next_reply(owed_in_frames_);
        if (!reply.empty()) {
            ++came;
            --owed_;
            if (wire::reply_status(reply) != 0) {
                ++refused;
                status = wire::reply_status(reply);
            }
        } else if (pollfd polled{owed_in_frames_ ? connection_->raw->descriptor()
                                                 : connection_->control->descriptor(),
                                 POLLIN, 0};
                   poll(&polled, 1, 0) <= 0 || !receive(owed_in_frames_)) {
            break;
        }
    }
    return came;
}

}  // namespace vexo::session
