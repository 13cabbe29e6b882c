#include "os/mutex.h"

#include "os/tables.h"

using vexo::kAcceptFreeRow;
using vexo::kRefuseFreeRow;
using vexo::mutexes;

int32_t pthread_request_mutex(void) {
    return mutexes.request(vexo::make_mutex);
}

int32_t pthread_free_mutex(int32_t index) {
    return mutexes.on_row(index, kAcceptFreeRow, [&](pthread_mutex_t& mutex) {
        pthread_mutex_destroy(&mutex);
        mutexes.release(index);
        return 0;
    });
}

int32_t pthread_lock_mutex(int32_t index) {
    return mutexes.on_row(index, kAcceptFreeRow, [](pthread_mutex_t& mutex) {
        pthread_mutex_lock(&mutex);
        return 0;
    });
}

int32_t pthread_trylock_mutex(int32_t index) {
    return mutexes.on_row(index, kRefuseFreeRow,
                          [](pthread_mutex_t& mutex) { return pthread_mutex_trylock(&mutex); });
}

int32_t pthread_unlock_mutex(int32_t index) {
    return mutexes.on_row(index, kAcceptFreeRow, [](pthread_mutex_t& mutex) {
        pthread_mutex_unlock(&mutex);
        return 0;
    });
}
