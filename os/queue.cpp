#include "os/queue.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <new>

#include "os/memory.h"
#include "os/sync.h"

namespace {

struct QueueNode {
    void* element;  // first: filters read it
    QueueNode* next;
};

enum Result : int8_t {
    ok = 0,
    no_queue = -1,
    lock_failed = -2,
    no_memory = -3,
    closed = -4,
    no_match = -5,
    full_or_empty = -7,
    wait_failed = -8,
};

constexpr useconds_t kDepartureCheckUs = 1000;
constexpr useconds_t kBusyRetryUs = 100000;

}  // namespace

struct Queue {
    QueueNode* first;
    QueueNode* last;
    uint16_t count;
    uint16_t max_count;  // 0 = unbounded
    uint8_t new_data;    // 0 = closed
    uint8_t sorted;
    int8_t ascending;
    queue_compare compare;
    pthread_mutex_t* mutex;  // guards everything here
    pthread_cond_t* cond_get;
    pthread_cond_t* cond_put;
    // Threads inside a wait: the queue must not be freed under them. A cancelled one takes itself
    // off after it has unlocked, and touches nothing of the queue any more.
    std::atomic<uint32_t> waiting;
};

namespace {

// Creation

using vexo::CancellationHold;

template <typename T>
bool allocate(T*& pointer) {
    pointer = static_cast<T*>(os_malloc(sizeof(T)));
    return pointer != nullptr;
}

bool make_condition(pthread_cond_t*& condition) {
    if (!allocate(condition)) {
        return false;
    }
    pthread_cond_init(condition, nullptr);
    return true;
}

bool make_parts(Queue& queue) {
    return allocate(queue.mutex) && vexo::make_mutex(*queue.mutex) &&
           make_condition(queue.cond_get) && make_condition(queue.cond_put);
}

void free_parts(Queue* queue) {
    os_free(queue->cond_put);
    os_free(queue->cond_get);
    os_free(queue->mutex);
    os_free(queue);
}

Queue* create(uint16_t max, bool sorted, int8_t ascending, queue_compare compare) {
    if (sorted && compare == nullptr) {
        return nullptr;
    }
    Queue* queue = nullptr;
    if (!allocate(queue)) {
        return nullptr;
    }
    new (queue) Queue{};
    queue->max_count = max;
    queue->new_data = 1;
    queue->sorted = sorted;
    queue->ascending = ascending;
    queue->compare = compare;
    if (!make_parts(*queue)) {
        free_parts(queue);
        return nullptr;
    }
    return queue;
}

// Locking

// The result of `act` under the queue's mutex. What calls functions of the application's holds
// cancellation off meanwhile: these may have cancellation points.
template <typename Act>
int8_t locked(Queue* queue, Act act) {
    if (queue == nullptr) {
        return no_queue;
    }
    if (pthread_mutex_lock(queue->mutex) != 0) {
        return lock_failed;
    }
    const int8_t result = act(*queue);
    return pthread_mutex_unlock(queue->mutex) == 0 ? result : int8_t{lock_failed};
}

void leave(void* waiting) {
    --*static_cast<std::atomic<uint32_t>*>(waiting);
}

int wait_in(Queue& queue, pthread_cond_t& condition, const vexo::Deadline& deadline) {
    int result = 0;
    ++queue.waiting;
    pthread_cleanup_push(leave, &queue.waiting);
    result = vexo::wait(condition, *queue.mutex, deadline);
    pthread_cleanup_pop(1);
    return result;
}

void wake_all(Queue& queue) {
    pthread_cond_broadcast(queue.cond_get);
    pthread_cond_broadcast(queue.cond_put);
}

// Putting

bool is_full(const Queue& queue) {
    return queue.count == QUEUE_ELEMENTS_MAX ||
           (queue.max_count != 0 && queue.count == queue.max_count);
}

// The link that a new element goes into. It stands before the elements that compare equal, so that
// those come out newest first.
QueueNode** link_for(Queue& queue, void* element) {
    const CancellationHold hold;
    const auto order = [&queue](void* a, void* b) {
        const int64_t ascending = queue.compare(a, b);
        return queue.ascending != 0 ? ascending : -ascending;
    };
    if (order(queue.first->element, element) >= 0) {
        return &queue.first;
    }
    QueueNode* previous = queue.first;
    while (previous->next != nullptr && !(order(previous->element, element) <= 0 &&
                                          order(element, previous->next->element) <= 0)) {
        previous = previous->next;
    }
    return &previous->next;
}

void insert(Queue& queue, QueueNode* node) {
    QueueNode** link = queue.first == nullptr ? &queue.first
                       : queue.sorted != 0    ? link_for(queue, node->element)
                                              : &queue.last->next;
    node->next = *link;
    *link = node;
    if (node->next == nullptr) {
        queue.last = node;
    }
    ++queue.count;
}

int8_t put(Queue& queue, void* element) {
    if (queue.new_data == 0) {
        return closed;
    }
    if (is_full(queue)) {
        return full_or_empty;
    }
    QueueNode* node = nullptr;
    if (!allocate(node)) {
        return no_memory;
    }
    node->element = element;
    insert(queue, node);
    if (queue.waiting != 0) {
        pthread_cond_broadcast(queue.cond_get);
    }
    return ok;
}

int8_t put_wait(Queue& queue, void* element) {
    while (is_full(queue) && queue.new_data != 0) {
        wait_in(queue, *queue.cond_put, {});
    }
    return put(queue, element);
}

// Getting

int8_t take(Queue& queue, void** element, queue_filter filter, void* arg) {
    QueueNode* previous = nullptr;
    QueueNode* node = queue.first;
    while (node != nullptr && filter != nullptr && filter(node, arg) != 0) {
        previous = node;
        node = node->next;
    }
    if (node == nullptr) {
        return no_match;
    }
    (previous == nullptr ? queue.first : previous->next) = node->next;
    if (queue.last == node) {
        queue.last = previous;
    }
    --queue.count;
    *element = node->element;
    os_free(node);
    if (queue.max_count != 0) {
        pthread_cond_signal(queue.cond_put);
    }
    return ok;
}

int8_t take_first(Queue& queue, void** element) {
    return take(queue, element, nullptr, nullptr);
}

int8_t take_first_wait(Queue& queue, void** element, const vexo::Deadline& deadline) {
    if (queue.count == 0) {
        if (wait_in(queue, *queue.cond_get, deadline) != 0) {
            return wait_failed;
        }
        if (queue.count == 0 && queue.new_data == 0) {
            return closed;
        }
    }
    return take_first(queue, element);
}

// As locked; null is what all gets hand out when they fail.
template <typename Act>
int8_t get(Queue* queue, void** element, Act act) {
    if (element == nullptr) {
        return no_queue;
    }
    *element = nullptr;
    return locked(queue, act);
}

// Flushing

void leave_alone(void*) {}

queue_release or_free(queue_release release) {
    return release != nullptr ? release : os_free;
}

int8_t flush(Queue& queue, queue_release release) {
    const CancellationHold hold;
    QueueNode* node = queue.first;
    queue.first = nullptr;
    queue.last = nullptr;
    queue.count = 0;
    while (node != nullptr) {
        QueueNode* const next = node->next;
        release(node->element);
        os_free(node);
        node = next;
    }
    return ok;
}

// Destroying

// Locks the mutex for the last time, when no thread waits in the closed queue any more.
bool lock_when_left(Queue& queue) {
    while (pthread_mutex_lock(queue.mutex) == 0) {
        if (queue.waiting == 0) {
            return true;
        }
        wake_all(queue);  // those too that began to wait after the queue was closed
        pthread_mutex_unlock(queue.mutex);
        usleep(kDepartureCheckUs);
    }
    return false;
}

int8_t destroy(Queue* queue, queue_release release) {
    const CancellationHold hold;  // once begun, it is carried through
    const int8_t close_result = queue_set_new_data(queue, 0);
    if (close_result != ok) {
        return close_result;
    }
    if (!lock_when_left(*queue)) {
        return lock_failed;
    }
    flush(*queue, release);
    pthread_cond_destroy(queue->cond_get);
    pthread_cond_destroy(queue->cond_put);
    pthread_mutex_unlock(queue->mutex);
    int result = 0;
    while ((result = pthread_mutex_destroy(queue->mutex)) == EBUSY) {
        usleep(kBusyRetryUs);
    }
    free_parts(queue);
    return static_cast<int8_t>(result);
}

}  // namespace

Queue* queue_create(void) {
    return create(0, false, 1, nullptr);
}

Queue* queue_create_limited(uint16_t max) {
    return create(max, false, 1, nullptr);
}

Queue* queue_create_sorted(int8_t ascending, queue_compare compare) {
    return create(0, true, ascending, compare);
}

Queue* queue_create_limited_sorted(uint16_t max, int8_t ascending, queue_compare compare) {
    return create(max, true, ascending, compare);
}

int8_t queue_destroy(Queue* queue) {
    return destroy(queue, leave_alone);
}

int8_t queue_destroy_complete(Queue* queue, queue_release release) {
    return destroy(queue, or_free(release));
}

int8_t queue_put(Queue* queue, void* element) {
    return locked(queue, [=](Queue& q) { return put(q, element); });
}

int8_t queue_put_wait(Queue* queue, void* element) {
    return locked(queue, [=](Queue& q) { return put_wait(q, element); });
}

int8_t queue_get(Queue* queue, void** element) {
    return get(queue, element, [=](Queue& q) {
        return q.count == 0 ? int8_t{full_or_empty} : take_first(q, element);
    });
}

int8_t queue_get_wait(Queue* queue, void** element) {
    return get(queue, element, [=](Queue& q) { return take_first_wait(q, element, {}); });
}

int8_t queue_get_timewait(Queue* queue, void** element, uint32_t timeout_us) {
    return get(timeout_us == 0 ? nullptr : queue, element, [=](Queue& q) {
        // The condition runs on the wall clock. The pairing is the contract: it makes the wait fail
        // at once.
        const uint64_t span_ns = timeout_us * vexo::kNanosecondsPerMicrosecond;
        return take_first_wait(q, element, vexo::monotonic_deadline(span_ns));
    });
}

int8_t queue_get_filtered(Queue* queue, void** element, queue_filter filter, void* arg) {
    const CancellationHold hold;
    return get(queue, element, [=](Queue& q) {
        return q.count == 0 ? int8_t{full_or_empty} : take(q, element, filter, arg);
    });
}

int8_t queue_flush(Queue* queue) {
    return locked(queue, [](Queue& q) { return flush(q, leave_alone); });
}

int8_t queue_flush_complete(Queue* queue, queue_release release) {
    return locked(queue, [=](Queue& q) { return flush(q, or_free(release)); });
}

int8_t queue_flush_put(Queue* queue, queue_release, void* element) {
    return locked(queue, [=](Queue& q) {
        flush(q, leave_alone);
        return put(q, element);
    });
}

int8_t queue_flush_complete_put(Queue* queue, queue_release release, void* element) {
    return locked(queue, [=](Queue& q) {
        flush(q, or_free(release));
        return put(q, element);
    });
}

uint16_t queue_elements(Queue* queue) {
    constexpr uint16_t kNotLocked = 65535;
    constexpr uint16_t kNotUnlocked = 65534;
    if (queue == nullptr || pthread_mutex_lock(queue->mutex) != 0) {
        return kNotLocked;
    }
    const uint16_t count = queue->count;
    return pthread_mutex_unlock(queue->mutex) == 0 ? count : kNotUnlocked;
}

int8_t queue_empty(Queue* queue) {
    return locked(queue, [](Queue& q) -> int8_t { return q.first == nullptr ? 1 : 0; });
}

int8_t queue_set_new_data(Queue* queue, uint8_t flag) {
    return locked(queue, [=](Queue& q) -> int8_t {
        q.new_data = flag;
        if (flag == 0) {
            wake_all(q);
        }
        return ok;
    });
}

uint8_t queue_get_new_data(Queue* queue) {
    uint8_t flag = 0;
    locked(queue, [&flag](Queue& q) -> int8_t {
        flag = q.new_data;
        return ok;
    });
    return flag;
}
