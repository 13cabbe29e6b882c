// How one clock goes against another, from points in time that are told late: the line below all
// points of arrival minus the time told. The fastest are the truest.
#ifndef SESSION_CLOCK_ESTIMATE_H
#define SESSION_CLOCK_ESTIMATE_H

#include <array>
#include <cstddef>

#include "session/monitor.h"
#include "session/session.h"

namespace vexo::session {

class LowerEnvelope {
public:
    // So many windows make the line; each contributes its lowest point.
    static constexpr size_t kWindows = 60;

    explicit LowerEnvelope(double window_s) : window_s_(window_s) {}

    void reset() { *this = LowerEnvelope(window_s_); }
    // `told` is the other clock's time in seconds, `arrival` ours. True when a window is complete.
    bool add(double told_s, Nanoseconds arrival);

    bool valid() const { return count_ >= kFew; }
    // When something of that time would have arrived at best.
    Nanoseconds predict(double told_s) const;
    // By how much the lowest point of the last complete window lay above the line.
    double last_window_s() const { return last_window_s_; }

    double slope() const { return slope_; }  // seconds we gain in a second of the other clock
    double spread_s() const { return spread_s_; }
    uint64_t count() const { return count_; }

private:
    static constexpr uint64_t kFew = 16;
    struct Point {
        double told;
        double delta;
    };
    double line(double told) const { return level_ + slope_ * (told - middle_); }
    void close_window();
    void fit();
    size_t hull(std::array<Point, kWindows>& corners) const;

    double window_s_;
    uint64_t count_ = 0;
    double first_told_ = 0;  // all else is relative to the first point
    Nanoseconds first_arrival_ = 0;
    double window_began_ = 0;
    Point lowest_{};
    bool window_open_ = false;
    std::array<Point, kWindows> points_{};
    size_t used_ = 0;
    size_t next_ = 0;
    double level_ = 0;
    double slope_ = 0;
    double middle_ = 0;
    double spread_s_ = 0;
    double last_window_s_ = 0;
};

// The controller's clock, as the I/O thread learns it and others ask for it.
class ClockEstimate {
public:
    ClockEstimate() : envelope_(1.0) {}

    // By the I/O thread. A jump of the controller's time begins it anew.
    void add(double told_s, Nanoseconds arrival);
    void reset();
    bool valid() const { return envelope_.valid(); }
    Nanoseconds predict(double told_s) const { return envelope_.predict(told_s); }

    // Any thread.
    VexoSessionClock read();

private:
    void publish(double told_s, Nanoseconds arrival);

    LowerEnvelope envelope_;
    double last_told_ = 0;
    Nanoseconds published_at_ = 0;
    Mutex mutex_;
    VexoSessionClock published_{};  // guarded by the mutex
};

}  // namespace vexo::session

#endif
