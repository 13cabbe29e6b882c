#include "os/message_queue.h"

#include "os/tables.h"

using vexo::kAcceptFreeRow;
using vexo::message_queues;

namespace {

constexpr int32_t kNoQueue = -3;

}  // namespace

int32_t pthread_request_queue(void) {
    const int32_t index = message_queues.request([](Queue*& queue) {
        queue = queue_create();
        return queue != nullptr;
    });
    return index < 0 ? kNoQueue : index;
}

int32_t pthread_free_queue(int32_t index) {
    return message_queues.on_row(index, kAcceptFreeRow, [&](Queue* queue) {
        const int32_t result = queue_destroy(queue);
        message_queues.release(index);
        return result;
    });
}

int32_t pthread_post_queue(int32_t index, void* message) {
    return message_queues.on_row(
        index, kAcceptFreeRow, [&](Queue* queue) -> int32_t { return queue_put(queue, message); });
}

int32_t pthread_pend_wait_queue(int32_t index, void** message, uint32_t timeout) {
    return message_queues.on_row(index, kAcceptFreeRow, [&](Queue* queue) -> int32_t {
        return timeout == 0 ? queue_get_wait(queue, message)
                            : queue_get_timewait(queue, message, timeout);
    });
}
