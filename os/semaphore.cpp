#include "os/semaphore.h"

#include "os/tables.h"

using vexo::kRefuseFreeRow;
using vexo::semaphores;
using vexo::WaitableWord;

int32_t pthread_request_sem(uint32_t initial_count) {
    return semaphores.request([&](WaitableWord& count) { return count.make(initial_count); });
}

int32_t pthread_sem_wait(int32_t index, uint32_t timeout_ms, uint8_t take_all) {
    return semaphores.on_row(index, kRefuseFreeRow, [&](WaitableWord& count) {
        const vexo::Deadline deadline =
            vexo::monotonic_deadline(timeout_ms * vexo::kNanosecondsPerMillisecond);
        const vexo::BriefLock lock(count.mutex);
        const int result = count.wait_for_any(UINT32_MAX, deadline);
        if (result == 0) {
            count.value = take_all != 0 ? 0 : count.value - 1;
        }
        return result;
    });
}

int32_t pthread_sem_signal(int32_t index) {
    return semaphores.on_row(index, kRefuseFreeRow, [](WaitableWord& count) {
        count.change([](uint32_t& value) { ++value; });
        return 0;
    });
}

int32_t pthread_free_sem(int32_t index) {
    return semaphores.on_row(index, kRefuseFreeRow, [&](WaitableWord& count) {
        count.destroy();
        semaphores.release(index);
        return 0;
    });
}
