// What `latency` and `servo-test` find out of a stream and of round trips, and their judgement.
#ifndef TOOLS_VEXO_MEASUREMENT_H
#define TOOLS_VEXO_MEASUREMENT_H

#include <string>
#include <vector>

#include "tools/vexo/live.h"
#include "tools/vexo/source.h"

namespace tool {

// Times in microseconds.
using Series = std::vector<double>;

// So much (0 to 1) of a series keeps to this; 0 for an empty one.
double quantile(Series series, double fraction);

// Has threads of this session's library run as the calling one does: `chrt -f 80 vexo ...` counts
// for both.
void run_as_caller();

class Measurement {
public:
    void add(const Row& row);
    void add_round_trip(double microseconds) { round_trips_.push_back(microseconds); }
    // Something that went wrong: the verdict is "fail".
    void add_cause(const std::string& cause) { causes_.push_back(cause); }

    // Takes the session's counts and judges. More than `limit_us` after it was due is late, 0 for
    // half a period.
    void judge(VexoSession* session, double limit_us);

    // Draws the distributions; throws a Failure when the file cannot be written.
    void draw(const std::string& file) const;
    // Prints the result in the form asked for. Returns how the command ends.
    Exit report(Output& output) const;

    std::string progress() const;

private:
    Json document() const;
    void print(Output& output) const;
    void judge_series(const char* what, const Series& series, double limit);

    uint64_t packages_ = 0;
    uint64_t lost_ = 0;
    uint64_t cuts_ = 0;
    uint32_t connection_ = 0;
    int64_t arrival_ns_ = 0;
    Series intervals_;
    Series ages_;
    Series wake_ups_;  // from the arrival until a package was readable
    Series round_trips_;
    VexoSessionStatistics counts_ = sized<VexoSessionStatistics>();
    std::vector<std::string> causes_;
};

// Throws a Failure unless a file can be written there; makes it if there is none.
void require_writable(const std::string& file);

}  // namespace tool

#endif
