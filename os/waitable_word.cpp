#include "os/waitable_word.h"

namespace vexo {

bool WaitableWord::make(uint32_t initial) {
    if (!make_monotonic_condition(changed)) {
        return false;
    }
    if (!make_mutex(mutex)) {
        pthread_cond_destroy(&changed);
        return false;
    }
    value = initial;
    return true;
}

void WaitableWord::destroy() {
    pthread_cond_destroy(&changed);
    pthread_mutex_destroy(&mutex);
}

int WaitableWord::wait_for_any(uint32_t mask, const Deadline& deadline) {
    int result = 0;
    while (result == 0 && (value & mask) == 0) {
        result = wait(changed, mutex, deadline);
    }
    return result;
}

}  // namespace vexo
