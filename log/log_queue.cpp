#include "log/log_queue.h"

#include <cstring>

#include "base/mutex_lock.h"

namespace vexo {

namespace {

void copy_key(LogEntry& entry, const char* key) {
    const size_t length = strnlen(key, sizeof entry.key - 1);
    std::memcpy(entry.key, key, length);
    entry.key[length] = '\0';
}

// A line comes from another processor's cache: while one is written, the next one is on its way.
void prefetch(const LogEntry& entry) {
    constexpr size_t kCacheLine = 64;
    constexpr size_t kUsualLine = 256;
    const char* bytes = entry.key;
    for (size_t at = 0; at < kUsualLine; at += kCacheLine) {
        __builtin_prefetch(bytes + at);
    }
}

}  // namespace

void LogQueue::restart() {
    const BriefLock lock(mutex_);
    head_ = 0;
    tail_ = 0;
    stop_ = false;
}

void LogQueue::put(const char* line, size_t length, const char* key) {
    const BriefLock lock(mutex_);
    const int tail = tail_.load(std::memory_order_relaxed);
    const int next = after(tail);
    if (next == head_.load(std::memory_order_acquire)) {
        return;
    }
    LogEntry& entry = entries_[tail];
    std::memcpy(entry.line, line, length);
    entry.line[length] = '\0';
    copy_key(entry, key);
    tail_.store(next, std::memory_order_release);
    pthread_cond_signal(&changed_);
}

bool LogQueue::take(LogEntry& entry) {
    const int head = head_.load(std::memory_order_relaxed);
    if (head == tail_.load(std::memory_order_acquire) && !wait_for_line(head)) {
        return false;
    }
    std::strcpy(entry.line, entries_[head].line);
    copy_key(entry, entries_[head].key);
    prefetch(entries_[after(head)]);
    head_.store(after(head), std::memory_order_release);
    return true;
}

bool LogQueue::wait_for_line(int head) {
    const BriefLock lock(mutex_);
    while (head == tail_ && !stop_) {
        pthread_cond_wait(&changed_, &mutex_);
    }
    return head != tail_;
}

void LogQueue::request_stop() {
    const BriefLock lock(mutex_);
    stop_ = true;
    pthread_cond_broadcast(&changed_);
}

void LogQueue::renew() {
    let_go();
    changed_ = PTHREAD_COND_INITIALIZER;
    restart();
}

}  // namespace vexo
