#include "os/event.h"

#include "os/tables.h"

using vexo::events;
using vexo::kRefuseFreeRow;
using vexo::WaitableWord;

int32_t pthread_request_event(void) {
    return events.request([](WaitableWord& flags) { return flags.make(0); });
}

int32_t pthread_event_wait(int32_t index, uint32_t mask, uint32_t* out, uint32_t timeout_us) {
    return events.on_row(index, kRefuseFreeRow, [&](WaitableWord& flags) {
        const vexo::Deadline deadline =
            vexo::monotonic_deadline(timeout_us * vexo::kNanosecondsPerMicrosecond);
        const vexo::BriefLock lock(flags.mutex);
        const int result = flags.wait_for_any(mask, deadline);
        *out = flags.value & mask;
        return result;
    });
}

int32_t pthread_event_set(int32_t index, uint32_t bits) {
    return events.on_row(index, kRefuseFreeRow, [&](WaitableWord& flags) {
        flags.change([&](uint32_t& value) { value |= bits; });
        return 0;
    });
}

int32_t pthread_event_clr(int32_t index, uint32_t bits) {
    return events.on_row(index, kRefuseFreeRow, [&](WaitableWord& flags) {
        flags.change([&](uint32_t& value) { value &= ~bits; });
        return 0;
    });
}

int32_t pthread_free_event(int32_t index) {
    return events.on_row(index, kRefuseFreeRow, [&](WaitableWord& flags) {
        flags.destroy();
        events.release(index);
        return 0;
    });
}
