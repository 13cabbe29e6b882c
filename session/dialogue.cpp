#include "session/dialogue.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>

#include "session/error.h"

namespace vexo::session {

namespace {

constexpr size_t kMostOwed = 16;

}  // namespace

void Dialogue::begin(Ref<Link> link) {
    link_ = std::move(link);
    replies_.clear();
    owed_.clear();
    waiting_for_ = 0;
    heard_at_ = monotonic_ns();
    if (!io_.watch(link_->descriptor(), EPOLLIN | EPOLLRDHUP, *this)) {
        fail(system_failure(VEXO_SESSION_SYSTEM, "a connection cannot be watched", errno));
    }
}

void Dialogue::end() {
    if (link_) {
        io_.forget(link_->descriptor());
        link_ = {};
    }
    waiting_for_ = 0;
}

void Dialogue::fail(const VexoSessionError& error) {
    owner_.dialogue_failed(error);
}

bool Dialogue::ask(std::span<const uint8_t> message) {
    statistics_.requests.add();
    waiting_for_ = message[2];
    doubtful_ = false;
    asked_at_ = monotonic_ns();
    if (link_->send(message) != Sent::whole) {
        fail(failure(VEXO_SESSION_SILENT, "the controller does not take requests any more"));
        return false;
    }
    return true;
}

void Dialogue::drop_reply() {
    statistics_.timed_out.add();
    if (doubtful_ || replies_.in_the_middle() || owed_.size() >= kMostOwed) {
        fail(failure(VEXO_SESSION_OUT_OF_STEP,
                     "a reply is missing, so that it is not known whose the others are"));
        return;
    }
    owed_.push_back(waiting_for_);
    waiting_for_ = 0;
}

void Dialogue::ready(uint32_t) {
    if (!link_) {
        return;
    }
    const std::span<uint8_t> room = replies_.room();
    const ssize_t got = recv(link_->descriptor(), room.data(), room.size(), MSG_DONTWAIT);
    if (got > 0) {
        replies_.received(static_cast<size_t>(got));
        take_replies();
    } else if (got == 0) {
        fail(failure(VEXO_SESSION_CUT, "the controller has closed the connection"));
    } else if (errno != EAGAIN && errno != EINTR) {
        fail(system_failure(VEXO_SESSION_CUT, "the connection broke", errno));
    }
}

void Dialogue::take_replies() {
    for (;;) {
        const std::span<const uint8_t> reply = replies_.next();
        if (replies_.out_of_step()) {
            fail(failure(VEXO_SESSION_OUT_OF_STEP, "a reply with an impossible length has come"));
            return;
        }
        if (reply.empty() || !take(reply) || !link_) {
            return;
        }
    }
}

// False: the dialogue is over.
bool Dialogue::take(std::span<const uint8_t> reply) {
    heard_at_ = monotonic_ns();
    const uint8_t letter = wire::reply_header(reply).letter;
    const auto owed = std::find(owed_.begin(), owed_.end(), letter);
    if (owed != owed_.end()) {
        // Those that were to come before it will not come any more.
        owed_.erase(owed_.begin(), owed + 1);
        doubtful_ = doubtful_ || letter == waiting_for_;
        statistics_.late_replies.add();
        return true;
    }
    if (letter != waiting_for_ || waiting_for_ == 0) {
        fail(failure(VEXO_SESSION_OUT_OF_STEP,
                     "a reply with the letter 0x%02X has come that nobody has asked for", letter));
        return false;
    }
    owed_.clear();
    waiting_for_ = 0;
    const Nanoseconds round_trip = heard_at_ - asked_at_;
    statistics_.measures[VEXO_SESSION_MEASURE_ROUND_TRIP].add(round_trip);
    owner_.replied(reply, round_trip);
    return static_cast<bool>(link_);
}

}  // namespace vexo::session
