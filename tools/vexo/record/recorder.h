// Takes the packages of a stream to files, in a thread of its own that looks twenty times a second
// and allocates nothing while it runs. Whatever the disk does holds up nobody else: the session
// stores packages in its ring meanwhile, and what does not fit there is counted as lost.
#ifndef TOOLS_VEXO_RECORD_RECORDER_H
#define TOOLS_VEXO_RECORD_RECORDER_H

#include <atomic>
#include <optional>
#include <thread>

#include "tools/mcap/recipe.h"
#include "tools/mcap/writer.h"
#include "tools/vexo/record/condition.h"
#include "tools/vexo/robot.h"

namespace tool {

struct Recording {
    std::string path;
    double split_s;    // the longest time in one file
    double pre_s;      // of a black box
    std::string time;  // the variable of the controller's time; empty: none
    mcap::Recipe recipe;
    mcap::Contents contents;
    std::optional<Condition> condition;  // of a black box
};

// What a recorder has done so far; any thread may look.
struct Progress {
    std::atomic<uint64_t> packages{0};  // in files
    std::atomic<uint64_t> lost{0};      // on the way, or not in a file for another reason
    std::atomic<uint64_t> bytes{0};     // of all files
    std::atomic<uint64_t> files{0};
    std::atomic<int> trouble{0};            // the errno of the latest write; 0: it succeeded
    std::atomic<uint64_t> removed{0};       // files that somebody removed while they were written
    std::atomic<int64_t> writing_since{0};  // ns, monotonic; 0: not writing at the moment
    std::atomic<int64_t> triggered{0};      // when the black box began to write; 0: not yet
    std::atomic<bool> stream_ended{false};  // for good, as its variables are not what they were
};

// Monotonic, as the session's times are.
int64_t monotonic_now_ns();

class Recorder {
public:
    // Begins with the first package, or with the black box armed. The first file is made at once:
    // throws a Failure where that cannot be.
    Recorder(VexoSession* session, VexoSessionStream* stream, Recording recording);
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    const Progress& progress() const { return progress_; }
    // Writes what has come until now, and ends. A second call does nothing.
    void stop();

private:
    void run();
    void watch();
    bool trigger(const VexoSessionPackage& package);
    void record();
    bool read();
    bool take_all();
    bool take(const VexoSessionPackage& package);
    void lose_rest(bool all_taken);
    uint64_t log_time(const VexoSessionPackage& package) const;
    uint64_t publish_time(const VexoSessionPackage& package, uint64_t log_time) const;
    bool write();
    int write_to_file();
    int begin_file();
    void end_file();
    const VexoSessionPackage& package(uint32_t index) const;

    VexoSession* const session_;
    VexoSessionStream* const stream_;
    Recording recording_;
    const int64_t realtime_minus_monotonic_;  // as it was at the start: log times never step
    VexoSessionLayout layout_{};
    VexoSessionCursor* cursor_ = nullptr;
    VexoSessionVariable time_{};
    VexoSessionClock clock_{};

    mcap::Writer writer_;
    std::vector<uint64_t> records_;  // of 64 bits, so that they are aligned
    uint32_t read_ = 0;              // records that are there
    uint32_t taken_ = 0;             // of these, given to the writer
    mcap::Bytes cdr_;
    int64_t from_ns_ = 0;  // packages that came before are not recorded
    uint64_t last_log_time_ = 0;
    uint64_t first_log_time_ = 0;   // of the file; 0: it has none yet
    uint64_t packages_before_ = 0;  // in the files that are closed
    uint64_t bytes_before_ = 0;

    Progress progress_;
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

}  // namespace tool

#endif
