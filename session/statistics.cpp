#include "session/statistics.h"

namespace vexo::session {

VexoSessionStatistics Statistics::read() const {
    VexoSessionStatistics now{};
    now.packages = packages.get();
    now.package_bytes = package_bytes.get();
    now.lost = lost.get();
    now.malformed = malformed.get();
    now.foreign = foreign.get();
    now.overwritten = overwritten.get();
    for (size_t i = 0; i < late.size(); ++i) {
        now.late[i] = late[i].get();
    }
    now.kernel_drops = kernel_drops.get();
    now.requests = requests.get();
    now.refused = refused.get();
    now.timed_out = timed_out.get();
    now.late_replies = late_replies.get();
    now.set_points = set_points.get();
    now.acknowledged = acknowledged.get();
    now.inputs = inputs.get();
    now.attempts = attempts.get();
    now.connections = connections.get();
    now.cuts = cuts.get();
    now.cut_ns = cut_ns.get();
    now.longest_cut_ns = longest_cut_ns.get();
    now.last_cut_ns = last_cut_ns.get();
    now.period_ns = period_ns.get();
    return now;
}

}  // namespace vexo::session

extern "C" const char* vexo_session_cause_name(uint32_t cause) {
    constexpr const char* kNames[VEXO_SESSION_CAUSES] = {"peer",    "wire",   "wake-up",
                                                         "library", "reader", "peer or wire"};
    return cause < VEXO_SESSION_CAUSES ? kNames[cause] : "unknown";
}
