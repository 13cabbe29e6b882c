// The ring of lines that wait for the writer.
#ifndef LOG_LOG_QUEUE_H
#define LOG_LOG_QUEUE_H

#include <pthread.h>

#include <atomic>
#include <cstddef>

#include "log/log_key.h"

namespace vexo {

constexpr size_t kLogLineSize = 2048;

struct LogEntry {
    char key[kLogKeySize];
    char line[kLogLineSize];
};

// Usable from static initialisation on, before the log is started and after it has ended.
class LogQueue {
public:
    // Forgets what waits and takes back a request to stop.
    void restart();
    // Copies a line of `length` characters, unless the ring is full. The lines lie in the ring
    // itself: producers and writer would otherwise meet at the heap's lock for each of them.
    void put(const char* line, size_t length, const char* key);
    // Waits for the next entry. False when a stop was requested and nothing is left.
    bool take(LogEntry& entry);
    void request_stop();

    // Around a fork: the child's queue is an empty one.
    void hold() { pthread_mutex_lock(&mutex_); }
    void let_go() { pthread_mutex_unlock(&mutex_); }
    void renew();

private:
    static constexpr int kSlots = 32;

    static int after(int index) { return (index + 1) % kSlots; }
    // False when a stop was requested and nothing has come behind `head`.
    bool wait_for_line(int head);

    LogEntry entries_[kSlots] = {};
    // Next to take out; the writer's, so that it needs no lock to take.
    std::atomic<int> head_{0};
    std::atomic<int> tail_{0};  // next to fill
    bool stop_ = false;
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;  // for producers, and to wait
    pthread_cond_t changed_ = PTHREAD_COND_INITIALIZER;
};

}  // namespace vexo

#endif
