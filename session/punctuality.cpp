#include "session/punctuality.h"

#include "session/lateness.h"

namespace vexo::session {

namespace {

constexpr uint64_t kMeasured = 64;

// How much of one span lies in another.
constexpr Nanoseconds overlap(Nanoseconds begin, Nanoseconds end, Nanoseconds other_begin,
                              Nanoseconds other_end) {
    return std::max<Nanoseconds>(std::min(end, other_end) - std::max(begin, other_begin), 0);
}

}  // namespace

void Punctuality::begin(Nanoseconds period) {
    given_ = period != 0;
    period_ = period;
    measured_ = 0;
    nominal_s_ = static_cast<double>(period) * 1e-9;
    pace_.reset();
    statistics_.period_ns.set(static_cast<uint64_t>(period));
}

void Punctuality::add(const Package& package, const IoThread::Rounds& rounds) {
    if (nominal_s_ == 0) {
        measure(package);
        return;
    }
    if (pace_.valid()) {
        judge(package, rounds);
    }
    take_pace(package);
}

// The mean over the first packages will do: the pace finds what is left of the error.
void Punctuality::measure(const Package& package) {
    if (measured_++ == 0) {
        first_ = package;
    }
    if (measured_ >= kMeasured && package.beat > first_.beat) {
        period_ = (package.arrival - first_.arrival) /
                  static_cast<Nanoseconds>(package.beat - first_.beat);
        nominal_s_ = static_cast<double>(period_) * 1e-9;
        statistics_.period_ns.set(static_cast<uint64_t>(period_));
    }
}

// When even the best of a whole window was late, the controller has changed its step for good.
void Punctuality::take_pace(const Package& package) {
    const double told = static_cast<double>(package.beat) * nominal_s_;
    if (!pace_.add(told, package.arrival)) {
        return;
    }
    if (pace_.last_window_s() > nominal_s_ / 2) {
        pace_.reset();
    } else if (!given_) {
        period_ = static_cast<Nanoseconds>(nominal_s_ * (1 + pace_.slope()) * 1e9);
        statistics_.period_ns.set(static_cast<uint64_t>(period_));
    }
}

void Punctuality::judge(const Package& package, const IoThread::Rounds& rounds) {
    const Nanoseconds due = pace_.predict(static_cast<double>(package.beat) * nominal_s_);
    if (package.stored - due <= period_ / 2) {
        return;
    }
    const Nanoseconds library =
        overlap(package.arrival, package.stored, rounds.began, package.stored) +
        overlap(package.arrival, package.stored, rounds.began_before, rounds.ended_before);
    Lateness lateness;
    if (package.sent != 0) {
        lateness[VEXO_SESSION_CAUSE_PEER] = package.sent - due;
        lateness[VEXO_SESSION_CAUSE_WIRE] = package.arrival - package.sent;
    } else {
        lateness[VEXO_SESSION_CAUSE_PEER_OR_WIRE] = package.arrival - due;
    }
    lateness[VEXO_SESSION_CAUSE_LIBRARY] = library;
    lateness[VEXO_SESSION_CAUSE_WAKE_UP] = package.stored - package.arrival - library;
    statistics_.late[lateness.cause()].add();
}

}  // namespace vexo::session
