#include "log/log.h"

#include <sys/time.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "log/log_files.h"
#include "log/log_queue.h"

char log_string[VEXO_LOG_STRING_SIZE];
uint8_t log_init_ok;

namespace vexo {

namespace {

constexpr size_t kLineSize = 2048;
constexpr char kGeneralKey[] = "sys_log";

LogQueue log_queue;
pthread_t log_thread;
bool log_thread_runs = false;

void* log_writer_thread(void*) {
    static LogFiles files;
    LogEntry entry;
    while (log_queue.take(entry)) {
        files.write(entry.key, entry.message);
        std::free(entry.message);
    }
    files.close_all();
    std::fputs("Log thread exited\n", stderr);
    return nullptr;
}

// Local time to the second. Made once a second per thread: it is the costly part of a line.
const char* calendar_text(time_t second) {
    thread_local time_t shown = -1;
    thread_local char text[64];
    if (second != shown) {
        tm local{};
        localtime_r(&second, &local);
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
        shown = second;
    }
    return text;
}

// The whole line on the heap, or null when there is no memory.
char* make_line(uint32_t handle, const char* function, const char* text) {
    timeval now{};
    gettimeofday(&now, nullptr);
    char line[kLineSize];
    std::snprintf(line, sizeof line, "Function:%s Handle:%d Time:%s.%06ld %s\n", function,
                  static_cast<int>(handle), calendar_text(now.tv_sec), now.tv_usec, text);
    return strdup(line);
}

}  // namespace

}  // namespace vexo

using namespace vexo;

void log_init(void) {
    if (log_init_ok == 1) {
        return;
    }
    log_init_ok = 1;
    log_queue.restart();
    log_thread_runs = pthread_create(&log_thread, nullptr, log_writer_thread, nullptr) == 0;
}

void log_write(uint32_t handle, const char* function, const char* text) {
    const char* key = handle == 0 ? kGeneralKey : log_key(handle);
    if (key == nullptr || (handle != 0 && (function == nullptr || text == nullptr))) {
        return;
    }
    char* line = make_line(handle, function, text);
    if (line != nullptr && !log_queue.put(line, key)) {
        std::free(line);
    }
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
    log_queue.release_messages();
    log_init_ok = 0;
}
