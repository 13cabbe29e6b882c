#include "tools/vexo/doctor/stream_run.h"

#include <sched.h>

namespace doctor {
namespace {

// Names that controllers give to a count of packages and to their time, if they have them.
constexpr const char* kCounter = "package_counter";
constexpr const char* kTime = "controller_time";

template <class Structure>
Structure sized() {
    Structure structure{};
    structure.size = sizeof structure;
    return structure;
}

std::string last_cause() {
    auto error = sized<VexoSessionError>();
    vexo_session_error(&error);
    return error.cause;
}

bool has_output(VexoSession* session, const char* name) {
    auto entry = sized<VexoSessionVariable>();
    return vexo_session_find(session, VEXO_SESSION_OUTPUT, name, &entry) == VEXO_SESSION_OK;
}

double silent_us(VexoSessionStream* stream) {
    alignas(VexoSessionPackage) char record[256];  // two variables at most
    int64_t age_ns = 0;
    vexo_session_stream_latest(stream, record, sizeof record, &age_ns);
    return static_cast<double>(age_ns) / 1000;
}

// One below the loop whose wake-ups are measured: it must not be late for our own sake.
void take_realtime_priority() {
    auto options = sized<VexoSessionThreadOptions>();
    options.policy = SCHED_FIFO;
    options.priority = kLoopPriority - 1;
    vexo_session_io_thread(&options);  // where it is refused, it runs as it may
}

}  // namespace

StreamRun::StreamRun(const Purpose& purpose, double limit_s) {
    if (purpose.controller.empty()) {
        refusal_ = "no controller";
        return;
    }
    take_realtime_priority();
    const auto limit_us = static_cast<int64_t>(limit_s * 1e6);
    open(purpose, limit_us);
    if (session_ != nullptr) {
        open_stream(limit_us);
    }
}

StreamRun::~StreamRun() {
    if (session_ != nullptr) {
        vexo_session_close(session_);
    }
}

void StreamRun::open(const Purpose& purpose, int64_t limit_us) {
    auto options = sized<VexoSessionOptions>();
    options.mode = purpose.mode;
    options.interface = purpose.path == "raw" ? purpose.interface.c_str() : nullptr;
    if (vexo_session_open(purpose.controller.c_str(), &options, &session_) != VEXO_SESSION_OK) {
        session_ = nullptr;
        refusal_ = last_cause();
    } else if (vexo_session_wait(session_, VEXO_SESSION_STATE_READY, limit_us) != VEXO_SESSION_OK) {
        refusal_ = last_cause();
        vexo_session_close(session_);
        session_ = nullptr;
    }
}

void StreamRun::open_stream(int64_t limit_us) {
    auto options = sized<VexoSessionStreamOptions>();
    std::vector<const char*> names;
    if (has_output(session_, kCounter)) {
        options.counter_variable = kCounter;
        names.push_back(kCounter);
    }
    if (has_output(session_, kTime)) {
        options.time_variable = kTime;
        names.push_back(kTime);
    }
    auto first = sized<VexoSessionVariable>();
    if (names.empty() && vexo_session_entry(session_, VEXO_SESSION_OUTPUT, 0, &first) == 0) {
        names.push_back(first.name);
    }
    if (vexo_session_stream_open(session_, names.data(), static_cast<uint32_t>(names.size()),
                                 &options, limit_us, &stream_) != VEXO_SESSION_OK) {
        refusal_ = last_cause();
    }
}

Fact<Stream> StreamRun::figures() const {
    if (!refusal_.empty()) {
        return Fact<Stream>::unknown(refusal_);
    }
    auto statistics = sized<VexoSessionStatistics>();
    auto intervals = sized<VexoSessionHistogram>();
    vexo_session_statistics(session_, &statistics);
    vexo_session_histogram(session_, VEXO_SESSION_MEASURE_INTERVAL, &intervals);
    Stream stream;
    stream.packages = static_cast<int64_t>(statistics.packages);
    stream.lost = static_cast<int64_t>(statistics.lost);
    stream.cuts = static_cast<int64_t>(statistics.cuts);
    stream.kernel_drops = static_cast<int64_t>(statistics.kernel_drops);
    for (uint32_t cause = 0; cause < VEXO_SESSION_CAUSES; ++cause) {
        stream.late[vexo_session_cause_name(cause)] = static_cast<int64_t>(statistics.late[cause]);
    }
    const auto percentile_us = [&intervals](double fraction) {
        return static_cast<double>(vexo_session_percentile_ns(&intervals, fraction)) / 1000;
    };
    stream.interval_p50_us = percentile_us(0.5);
    stream.interval_p99_9_us = percentile_us(0.999);
    stream.interval_max_us = percentile_us(1);
    stream.silent_us = silent_us(stream_);
    return stream;
}

}  // namespace doctor
