// When packages are due, and who has made the late ones late.
#ifndef SESSION_PUNCTUALITY_H
#define SESSION_PUNCTUALITY_H

#include "session/clock_estimate.h"
#include "session/io_thread.h"
#include "session/statistics.h"

namespace vexo::session {

// Packages are due at the pace that the fastest of them keep: half a period after that they are
// late. By the I/O thread.
class Punctuality {
public:
    explicit Punctuality(Statistics& statistics) : statistics_(statistics) {}

    // A stream begins, with this period, or 0 to have it measured.
    void begin(Nanoseconds period);

    struct Package {
        uint64_t beat;  // how many periods since the stream began
        Nanoseconds arrival;
        Nanoseconds stored;
        Nanoseconds
            sent;  // when it would have arrived at best, by the controller's clock; 0: unknown
    };
    void add(const Package& package, const IoThread::Rounds& rounds);

    Nanoseconds period() const { return period_; }

private:
    void measure(const Package& package);
    void take_pace(const Package& package);
    void judge(const Package& package, const IoThread::Rounds& rounds);

    Statistics& statistics_;
    Nanoseconds period_ = 0;
    bool given_ = false;
    uint64_t measured_ = 0;  // packages
    Package first_{};
    LowerEnvelope pace_{1.0};
    double nominal_s_ = 0;
};

}  // namespace vexo::session

#endif
