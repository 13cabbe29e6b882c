#include "session/clock_estimate.h"

#include <cmath>
#include <mutex>

namespace vexo::session {

namespace {

constexpr double kPerSecond = 1e9;
constexpr double kJump = 1.0;  // seconds; no wire holds a package so long and then lets go
constexpr Nanoseconds kPublishEach = 10 * kMillisecond;

double seconds(Nanoseconds span) {
    return static_cast<double>(span) / kPerSecond;
}

}  // namespace

bool LowerEnvelope::add(double told_s, Nanoseconds arrival) {
    if (count_++ == 0) {
        first_told_ = told_s;
        first_arrival_ = arrival;
    }
    const double told = told_s - first_told_;
    const Point point{told, seconds(arrival - first_arrival_) - told};
    if (!window_open_) {
        window_open_ = true;
        window_began_ = told;
        lowest_ = point;
    } else if (point.delta - slope_ * point.told < lowest_.delta - slope_ * lowest_.told) {
        lowest_ = point;
    }
    // The line is never above a point.
    level_ += std::min(0.0, point.delta - line(told));
    if (told - window_began_ < window_s_) {
        return false;
    }
    close_window();
    return true;
}

void LowerEnvelope::close_window() {
    last_window_s_ = lowest_.delta - line(lowest_.told);
    points_[next_] = lowest_;
    next_ = (next_ + 1) % kWindows;
    used_ = std::min(used_ + 1, kWindows);
    window_open_ = false;
    fit();
}

// The corners of the lower convex hull, from left to right.
size_t LowerEnvelope::hull(std::array<Point, kWindows>& corners) const {
    size_t count = 0;
    for (size_t i = 0; i < used_; ++i) {
        const Point& p = points_[(next_ + kWindows - used_ + i) % kWindows];
        while (count >= 2) {
            const Point& a = corners[count - 2];
            const Point& b = corners[count - 1];
            const double turn =
                (b.told - a.told) * (p.delta - a.delta) - (b.delta - a.delta) * (p.told - a.told);
            if (turn > 0) {
                break;
            }
            --count;
        }
        corners[count++] = p;
    }
    return count;
}

// Of all lines below the points, that with the least distance to them together: the edge of the
// hull over their middle. Until there are a few, one without a slope.
void LowerEnvelope::fit() {
    constexpr size_t kEnough = 5;
    double sum = 0;
    for (size_t i = 0; i < used_; ++i) {
        sum += points_[i].told;
    }
    middle_ = sum / static_cast<double>(used_);
    std::array<Point, kWindows> corners;
    const size_t count = hull(corners);
    size_t right = 1;
    while (right + 1 < count && corners[right].told < middle_) {
        ++right;
    }
    if (used_ >= kEnough && count >= 2) {
        const Point& a = corners[right - 1];
        const Point& b = corners[right];
        slope_ = (b.delta - a.delta) / (b.told - a.told);
        level_ = a.delta + slope_ * (middle_ - a.told);
    } else {
        slope_ = 0;
        level_ = corners[0].delta;
        for (size_t i = 1; i < count; ++i) {
            level_ = std::min(level_, corners[i].delta);
        }
    }
    double above = 0;
    for (size_t i = 0; i < used_; ++i) {
        above += points_[i].delta - line(points_[i].told);
    }
    spread_s_ = above / static_cast<double>(used_);
}

Nanoseconds LowerEnvelope::predict(double told_s) const {
    const double told = told_s - first_told_;
    return first_arrival_ + std::llround((told + line(told)) * kPerSecond);
}

void ClockEstimate::add(double told_s, Nanoseconds arrival) {
    const bool jumped =
        envelope_.count() > 0 &&
        (told_s < last_told_ || std::abs(seconds(arrival - envelope_.predict(told_s))) > kJump);
    if (!std::isfinite(told_s) || jumped) {
        reset();
    }
    if (!std::isfinite(told_s)) {
        return;
    }
    last_told_ = told_s;
    const bool complete = envelope_.add(told_s, arrival);
    if (complete || arrival - published_at_ >= kPublishEach) {
        publish(told_s, arrival);
    }
}

void ClockEstimate::reset() {
    envelope_.reset();
    const std::lock_guard lock(mutex_);
    published_ = {};
}

// Whoever reads at this moment gets it; this thread does not wait for that.
void ClockEstimate::publish(double told_s, Nanoseconds arrival) {
    if (!envelope_.valid() || !mutex_.try_lock()) {
        return;
    }
    published_at_ = arrival;
    const Nanoseconds at = envelope_.predict(told_s);
    published_.valid = 1;
    published_.offset_s = seconds(at) - told_s;
    published_.drift_ppm = envelope_.slope() * 1e6;
    published_.uncertainty_s = envelope_.spread_s();
    published_.at_ns = at;
    published_.packages = envelope_.count();
    mutex_.unlock();
}

VexoSessionClock ClockEstimate::read() {
    const std::lock_guard lock(mutex_);
    return published_;
}

}  // namespace vexo::session
