// What a controller's stream is like, as the session library counts it.
#ifndef TOOLS_VEXO_DOCTOR_STREAM_RUN_H
#define TOOLS_VEXO_DOCTOR_STREAM_RUN_H

#include <memory>
#include <string>

#include "session/session.h"
#include "tools/vexo/doctor/facts.h"

namespace doctor {

// A session that streams while an object of this lives.
class StreamRun {
public:
    // Begins it, and waits for that for `limit_s` at most.
    StreamRun(const Purpose& purpose, double limit_s);
    ~StreamRun();
    StreamRun(const StreamRun&) = delete;
    StreamRun& operator=(const StreamRun&) = delete;

    // What came since the beginning.
    Fact<Stream> figures() const;

private:
    void open(const Purpose& purpose, int64_t limit_us);
    void open_stream(int64_t limit_us);

    VexoSession* session_ = nullptr;
    VexoSessionStream* stream_ = nullptr;
    std::string refusal_;  // why there is no stream
};

}  // namespace doctor

#endif
