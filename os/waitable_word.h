// A word that threads wait on: the count of a semaphore, the flags of an event group.
#ifndef OS_WAITABLE_WORD_H
#define OS_WAITABLE_WORD_H

#include <cstdint>

#include "os/sync.h"

namespace vexo {

struct WaitableWord {
    pthread_cond_t changed;  // monotonic clock
    pthread_mutex_t mutex;
    uint32_t value;

    // Returns whether the system had what it takes.
    bool make(uint32_t initial);
    void destroy();

    // Waits, as wait() does, until a bit of `mask` is set. Returns the result of the last wait: 0,
    // or the error number that ended it.
    int wait_for_any(uint32_t mask, const Deadline& deadline);

    // Changes the value with `update` and wakes one waiter. Nothing is touched after unlocking: the
    // thread that the change lets pass may destroy the word at once.
    template <typename Update>
    void change(Update update) {
        const BriefLock lock(mutex);
        update(value);
        pthread_cond_signal(&changed);
    }
};

}  // namespace vexo

#endif
