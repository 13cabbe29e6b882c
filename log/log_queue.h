// The ring of lines that wait for the writer.
#ifndef LOG_LOG_QUEUE_H
#define LOG_LOG_QUEUE_H

#include <pthread.h>

#include "log/log_key.h"

namespace vexo {

struct LogEntry {
    char* message;  // a whole line on the heap, owned by the entry; null in an empty slot
    char key[kLogKeySize];
};

// Usable from static initialisation on, before the log is started and after it has ended.
class LogQueue {
public:
    // Forgets what waits and takes back a request to stop.
    void restart();
    // Takes over `message`. False when the ring is full: the message stays the caller's.
    bool put(char* message, const char* key);
    // Waits for the next entry. False when a stop was requested and nothing is left.
    bool take(LogEntry& entry);
    void request_stop();
    // Releases the messages that wait, leaving the ring's indices as they are.
    void release_messages();

private:
    static constexpr int kSlots = 32;

    static int after(int index) { return (index + 1) % kSlots; }
    void release_locked();

    LogEntry entries_[kSlots] = {};
    int head_ = 0;  // next to take out
    int tail_ = 0;  // next to fill
    bool stop_ = false;
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;  // guards all of the above
    pthread_cond_t changed_ = PTHREAD_COND_INITIALIZER;
};

}  // namespace vexo

#endif
