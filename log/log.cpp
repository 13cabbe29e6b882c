#include "log/log.h"

#include <sys/time.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iterator>

#include "base/mutex_lock.h"
#include "base/thread.h"
#include "log/log_files.h"
#include "log/log_queue.h"

char log_string[VEXO_LOG_STRING_SIZE];
uint8_t log_init_ok;

namespace vexo {

namespace {

constexpr char kGeneralKey[] = "sys_log";

LogQueue log_queue;
LogFiles log_files;
pthread_t log_thread;
bool log_thread_runs = false;

// Guards the C library's calendar, which has a lock of its own that a fork does not know.
pthread_mutex_t calendar_mutex = PTHREAD_MUTEX_INITIALIZER;

void* log_writer_thread(void*) {
    LogEntry entry;
    while (log_queue.take(entry)) {
        log_files.write(entry.key, entry.line);
    }
    log_files.close_all();
    std::fputs("Log thread exited\n", stderr);
    return nullptr;
}

// Local time to the second. Made once a second per thread: it is the costly part of a line.
const char* calendar_text(time_t second) {
    thread_local time_t shown = -1;
    thread_local char text[64];
    if (second != shown) {
        const MutexLock lock(calendar_mutex);
        tm local{};
        localtime_r(&second, &local);
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
        shown = second;
    }
    return text;
}

// A line under construction; what has no room is left out, be it the line feed.
class Line {
public:
    Line& text(const char* characters) {
        const char* const shown = characters != nullptr ? characters : "(null)";
        return append(shown, std::strlen(shown));
    }
    Line& number(int32_t value) {
        char digits[12];
        return append(digits, static_cast<size_t>(
                                  std::to_chars(digits, std::end(digits), value).ptr - digits));
    }
    Line& six_digits(long value) {
        char digits[6];
        for (char* digit = std::end(digits); digit != digits; value /= 10) {
            *--digit = static_cast<char>('0' + value % 10);
        }
        return append(digits, sizeof digits);
    }

    const char* characters() const { return characters_; }
    size_t length() const { return length_; }

private:
    Line& append(const char* characters, size_t count) {
        const size_t taken = std::min(count, kLogLineSize - 1 - length_);
        std::memcpy(characters_ + length_, characters, taken);
        length_ += taken;
        return *this;
    }

    char characters_[kLogLineSize];
    size_t length_ = 0;
};

void before_fork() {
    pthread_mutex_lock(&calendar_mutex);
    log_queue.hold();
}

void after_fork_in_parent() {
    log_queue.let_go();
    pthread_mutex_unlock(&calendar_mutex);
}

// The child has no writer: its log is empty and not started. Its one thread is the one that locked.
void after_fork_in_child() {
    pthread_mutex_unlock(&calendar_mutex);
    log_queue.renew();
    log_files.close_all();
    log_thread_runs = false;
    log_init_ok = 0;
}

[[gnu::constructor]] void follow_forks() {
    pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
}

}  // namespace

}  // namespace vexo

using namespace vexo;

void log_init(void) {
    if (log_init_ok == 1) {
        return;
    }
    log_init_ok = 1;  // stays so without a writer: nothing tells, and the lines are dropped
    log_queue.restart();
    log_thread_runs = start_thread(log_thread, log_writer_thread, nullptr);
}

void log_write(uint32_t handle, const char* function, const char* text) {
    const char* key = handle == 0 ? kGeneralKey : log_key(handle);
    if (key == nullptr || (handle != 0 && (function == nullptr || text == nullptr))) {
        return;
    }
    timeval now{};
    gettimeofday(&now, nullptr);
    Line line;
    line.text("Function:").text(function);
    line.text(" Handle:").number(static_cast<int32_t>(handle));
    line.text(" Time:").text(calendar_text(now.tv_sec)).text(".").six_digits(now.tv_usec);
    line.text(" ").text(text).text("\n");
    log_queue.put(line.characters(), line.length(), key);
}

void log_cleanup(void) {
    if (log_init_ok == 0) {
        return;
    }
    log_queue.request_stop();
    if (log_thread_runs) {
        pthread_join(log_thread, nullptr);
        log_thread_runs = false;
    }
    log_init_ok = 0;
}
