#include "tools/vexo/record/recorder.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>

namespace tool {
namespace {

constexpr auto kPeriod = std::chrono::milliseconds(50);
constexpr uint32_t kBatch = 256;
constexpr double kSecond = 1e9;

int64_t now_ns(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return now.tv_sec * 1'000'000'000 + now.tv_nsec;
}

Failure cannot_write(const std::string& path, int error) {
    const char* remedy = error == EEXIST ? "name another file with -o, or move that one away"
                                         : "name a file with -o where there is room and a right to "
                                           "write";
    return {Exit::failed, "file", path + " cannot be made: " + std::strerror(error), remedy};
}

}  // namespace

int64_t monotonic_now_ns() {
    return now_ns(CLOCK_MONOTONIC);
}

Recorder::Recorder(VexoSession* session, VexoSessionStream* stream, Recording recording)
    : session_(session),
      stream_(stream),
      recording_(std::move(recording)),
      realtime_minus_monotonic_(now_ns(CLOCK_REALTIME) - now_ns(CLOCK_MONOTONIC)),
      layout_(sized<VexoSessionLayout>()),
      clock_(sized<VexoSessionClock>()),
      writer_(recording_.contents) {
    checked(vexo_session_stream_layout(stream_, &layout_));
    if (!recording_.time.empty()) {
        time_ = sized<VexoSessionVariable>();
        checked(vexo_session_stream_find(stream_, recording_.time.c_str(), &time_));
    }
    records_.resize(size_t{layout_.record_size} * kBatch / sizeof records_[0]);
    cdr_.reserve(recording_.recipe.most_cdr_bytes());
    if (recording_.condition) {
        recording_.condition->bind(recording_.recipe);
    } else if (const int error = writer_.open(recording_.path); error != 0) {
        throw cannot_write(recording_.path, error);
    } else {
        progress_.files = 1;
    }
    auto options = sized<VexoSessionCursorOptions>();
    options.from_oldest = 1;
    checked(vexo_session_cursor_open(stream_, &options, &cursor_));
    thread_ = std::thread([this] { run(); });
}

Recorder::~Recorder() {
    stop();
}

void Recorder::stop() {
    stopping_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
}

const VexoSessionPackage& Recorder::package(uint32_t index) const {
    return *reinterpret_cast<const VexoSessionPackage*>(
        records_.data() + size_t{layout_.record_size} / sizeof records_[0] * index);
}

// Waits by sleeping: a thread woken by each package would disturb the reception of the next.
void Recorder::run() {
    if (recording_.condition) {
        watch();
    }
    if (!recording_.condition || progress_.triggered != 0) {
        record();
    }
}

// ---- The black box ------------------------------------------------------------------------------

// What it keeps is what the session's ring holds anyway.
void Recorder::watch() {
    while (!stopping_ && progress_.triggered == 0) {
        std::this_thread::sleep_for(kPeriod);
        while (progress_.triggered == 0 && read()) {
            for (; taken_ < read_ && !trigger(package(taken_)); ++taken_) {
            }
        }
    }
}

bool Recorder::trigger(const VexoSessionPackage& package) {
    const auto* values = reinterpret_cast<const uint8_t*>(&package) + layout_.values_offset;
    if (!recording_.condition->holds(values)) {
        return false;
    }
    from_ns_ = package.arrival_ns - static_cast<int64_t>(recording_.pre_s * kSecond);
    progress_.lost = 0;  // counted once more by the new cursor
    auto options = sized<VexoSessionCursorOptions>();
    options.from_oldest = 1;
    vexo_session_cursor_close(cursor_);
    vexo_session_cursor_open(stream_, &options, &cursor_);
    read_ = taken_ = 0;
    progress_.triggered = package.arrival_ns;
    return true;
}

// ---- Packages ----------------------------------------------------------------------------------

void Recorder::record() {
    bool last = false;
    bool all = false;
    while (!last) {
        last = stopping_;  // looked at first, so that all that came before it is read
        all = take_all();
        while (!all && write()) {
            all = take_all();
        }
        write();
        if (!last) {
            std::this_thread::sleep_for(kPeriod);
        }
    }
    end_file();
    lose_rest(all);
}

// False: there is nothing to read.
bool Recorder::read() {
    uint64_t overwritten = 0;
    taken_ = read_ = 0;
    const int32_t result =
        vexo_session_cursor_read(cursor_, records_.data(), kBatch, &read_, &overwritten);
    progress_.lost += overwritten;
    progress_.stream_ended = result < 0;
    return result == VEXO_SESSION_OK && read_ > 0;
}

// Gives the writer what has come. False: it has no room for all.
bool Recorder::take_all() {
    do {
        for (; taken_ < read_; ++taken_) {
            if (!take(package(taken_))) {
                return false;
            }
        }
    } while (read());
    return true;
}

bool Recorder::take(const VexoSessionPackage& package) {
    if (package.arrival_ns < from_ns_) {
        return true;
    }
    const uint64_t time = std::max(log_time(package), last_log_time_);
    const auto split = static_cast<uint64_t>(recording_.split_s * kSecond);
    if (first_log_time_ != 0 && (time - first_log_time_ >= split || writer_.full())) {
        end_file();
    }
    recording_.recipe.encode(reinterpret_cast<const uint8_t*>(&package) + layout_.values_offset,
                             cdr_);
    first_log_time_ = first_log_time_ == 0 ? time : first_log_time_;
    if (!writer_.add(
            {1, static_cast<uint32_t>(package.number), time, publish_time(package, time), cdr_})) {
        return false;
    }
    last_log_time_ = time;
    progress_.lost += package.lost;
    return true;
}

uint64_t Recorder::log_time(const VexoSessionPackage& package) const {
    return static_cast<uint64_t>(package.arrival_ns + realtime_minus_monotonic_);
}

// The controller's time by the host's clock, as far as it is known.
uint64_t Recorder::publish_time(const VexoSessionPackage& package, uint64_t log_time) const {
    double time = 0;
    if (time_.size == 0 || clock_.valid == 0 ||
        vexo_session_get_f64(&time_, &package, &time, 1) != 1) {
        return log_time;
    }
    const double since_arrival =
        (time + clock_.offset_s) * kSecond - static_cast<double>(package.arrival_ns);
    if (!(std::abs(since_arrival) < kSecond)) {
        return log_time;  // of another connection, or the clock has stepped
    }
    const auto published = log_time + static_cast<uint64_t>(std::llround(since_arrival));
    return std::clamp(published, first_log_time_, log_time);
}

// What is in no file now will never be. What came since the end was told is nobody's loss.
void Recorder::lose_rest(bool all_taken) {
    uint64_t waiting = 0;
    if (!all_taken) {
        vexo_session_cursor_waiting(cursor_, &waiting);
    }
    progress_.lost += writer_.pending() + (read_ - taken_) + waiting;
}

// ---- Files -------------------------------------------------------------------------------------

// Writes what was taken. Where that fails, the next time may do better.
bool Recorder::write() {
    vexo_session_clock(session_, &clock_);
    progress_.writing_since = monotonic_now_ns();
    const int error = write_to_file();
    progress_.writing_since = 0;
    progress_.trouble = error;
    progress_.packages = packages_before_ + (writer_.is_open() ? writer_.messages() : 0);
    progress_.bytes = bytes_before_ + (writer_.is_open() ? writer_.bytes() : 0);
    return error == 0;
}

int Recorder::write_to_file() {
    int error = writer_.is_open() ? writer_.flush() : begin_file();
    if (error == ENOENT && writer_.is_open()) {
        ++progress_.removed;
        --progress_.files;
        progress_.lost += writer_.messages();
        writer_.abandon();
        error = begin_file();
    }
    return error != 0 ? error : writer_.flush();
}

// Files behind the first have numbers. What stands there already is left alone.
int Recorder::begin_file() {
    int error = EEXIST;
    for (uint64_t number = progress_.files + 1; error == EEXIST; ++number) {
        std::string path = recording_.path;
        if (number > 1) {
            const size_t name = path.rfind('/') + 1;  // npos + 1 is 0
            const size_t dot = path.rfind('.');
            const bool suffix = dot != std::string::npos && dot > name;
            path.insert(suffix ? dot : path.size(), "-" + std::to_string(number));
        }
        error = writer_.open(path);
    }
    progress_.files += error == 0 ? 1 : 0;
    return error;
}

void Recorder::end_file() {
    if (writer_.is_open()) {
        const int error = writer_.close();
        progress_.trouble = error != 0 ? error : progress_.trouble.load();
        packages_before_ += writer_.messages();
        bytes_before_ += writer_.bytes();
        progress_.packages = packages_before_;
        progress_.bytes = bytes_before_;
    }
    first_log_time_ = 0;
}

}  // namespace tool
