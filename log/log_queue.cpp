#include "log/log_queue.h"

#include <cstdlib>
#include <cstring>

#include "log/mutex_lock.h"

namespace vexo {

void LogQueue::restart() {
    const MutexLock lock(mutex_);
    release_locked();
    head_ = 0;
    tail_ = 0;
    stop_ = false;
}

bool LogQueue::put(char* message, const char* key) {
    const MutexLock lock(mutex_);
    const int next = after(tail_);
    if (next == head_) {
        return false;
    }
    LogEntry& entry = entries_[tail_];
    entry.message = message;
    std::strncpy(entry.key, key, kLogKeySize - 1);
    tail_ = next;
    pthread_cond_signal(&changed_);
    return true;
}

bool LogQueue::take(LogEntry& entry) {
    const MutexLock lock(mutex_);
    while (head_ == tail_ && !stop_) {
        pthread_cond_wait(&changed_, &mutex_);
    }
    if (head_ == tail_) {
        return false;
    }
    entry = entries_[head_];
    entries_[head_].message = nullptr;
    head_ = after(head_);
    return true;
}

void LogQueue::request_stop() {
    const MutexLock lock(mutex_);
    stop_ = true;
    pthread_cond_broadcast(&changed_);
}

void LogQueue::release_messages() {
    const MutexLock lock(mutex_);
    release_locked();
}

void LogQueue::release_locked() {
    for (int i = head_; i != tail_; i = after(i)) {
        std::free(entries_[i].message);
        entries_[i].message = nullptr;
    }
}

}  // namespace vexo
