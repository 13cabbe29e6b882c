// Values of a session of our own.
#ifndef TOOLS_VEXO_LIVE_H
#define TOOLS_VEXO_LIVE_H

#include "tools/vexo/robot.h"
#include "tools/vexo/source.h"

namespace tool {

// What controllers call their count of packages, and their time in seconds.
constexpr const char* kCounterName = "package_counter";
constexpr const char* kTimeName = "controller_time";

bool has_output(VexoSession* session, const char* name);

// Opens a stream of these variables. The count of packages comes along where the controller has
// it, behind the others, so that losses are told over TCP, too.
VexoSessionStream* open_stream(VexoSession* session, std::vector<std::string> names,
                               VexoSessionStreamOptions options, int64_t limit_us);

// Says on standard error what befalls a session: cuts and returns, with -v all else.
class Reporter {
public:
    Reporter(VexoSession* session, Output& output) : session_(session), output_(output) {}
    void tell_news();

private:
    VexoSession* session_;
    Output& output_;
    uint64_t position_ = 0;
};

class LiveSource : public Source {
public:
    enum class Purpose { look, measure };

    // Streams these variables, over a session that is open. To measure it means to have each
    // package at once, and has the controller's time come along where there is one.
    LiveSource(Context& context, Session session, const std::vector<std::string>& names,
               Purpose purpose = Purpose::look);

    VexoSession* session() const { return session_.get(); }
    const std::vector<VexoSessionVariable>& fields() const override { return fields_; }
    std::optional<Row> next(TimePoint end) override;

private:
    void fill();
    void wait(TimePoint end);

    Session session_;
    Reporter reporter_;
    std::chrono::microseconds patience_;
    std::vector<VexoSessionVariable> fields_;
    size_t record_size_ = 0;
    VexoSessionCursor* cursor_ = nullptr;
    int descriptor_ = -1;
    std::vector<uint64_t> records_;  // whose size is a multiple of 8
    uint32_t taken_ = 0;
    uint32_t count_ = 0;
    uint64_t late_ = 0;
    TimePoint heard_ = std::chrono::steady_clock::now();
};

}  // namespace tool

#endif
