#include "client/receive_thread.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <new>

#include "base/mutex_lock.h"
#include "base/owned_descriptor.h"
#include "base/thread.h"
#include "client/received_stream.h"
#include "client/registry.h"
#include "client/vexo.h"

pthread_t th_receive;
uint32_t recv_thread_init_ok;

namespace vexo {

namespace {

// Held by the receive thread during a pass, and never while it waits.
pthread_mutex_t pass_mutex = PTHREAD_MUTEX_INITIALIZER;

// How often the receive thread has been asked to end. A thread ends when that is more than at its
// start, so that no request outlives the threads that it is meant for.
std::atomic<uint32_t> end_requests{0};

// Guards the thread's start, its wake-ups and the request that it ends.
pthread_mutex_t life_mutex = PTHREAD_MUTEX_INITIALIZER;

// An eventfd that ends the thread's wait. There is one from its start to the request that it ends.
int wake_up = -1;

void wake() {
    if (wake_up >= 0) {
        eventfd_write(wake_up, 1);
    }
}

void drop_wake_up() {
    if (wake_up >= 0) {
        close(wake_up);
    }
    wake_up = -1;
}

// What a thread is to serve, and from when on.
struct Task {
    uint32_t list[1 + VEXO_MAX_HANDLES];
    uint32_t end_requests;
    int wake_up;
};

// A count of handles that failed connections have let grow is cut to what a list can hold.
uint32_t handle_count(const uint32_t* list) {
    return std::min<uint32_t>(list[0], VEXO_MAX_HANDLES);
}

void cancellation_point() {
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    pthread_testcancel();
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
}

// The handles that one receive thread serves.
class Receiver {
public:
    explicit Receiver(const Task& task) : count_(task.list[0]), wake_up_(task.wake_up) {
        for (uint32_t i = 0; i < count_; ++i) {
            streams_[i] = ReceivedStream(task.list[1 + i]);
            polled_[i] = {-1, POLLIN, 0};
        }
        polled_[count_] = {wake_up_, POLLIN, 0};
    }

    // Serves each handle. False when one of them is gone.
    bool pass() {
        if (polled_[count_].revents != 0) {
            absorb_wake_up();
        }
        for (uint32_t i = 0; i < count_; ++i) {
            HandleState* handle = find_live_state(streams_[i].handle());
            if (handle == nullptr) {
                // Printed with two dashes, logged with three.
                report_as({0, "receive_thread"}, "vexo_thread--VexoHandle not found",
                          "vexo_thread---VexoHandle not found");
                return false;
            }
            streams_[i].serve(*handle, polled_[i]);
        }
        return true;
    }

    // Waits until something comes for any handle, or the thread is woken.
    void wait() { poll(polled_, count_ + 1, ReceivedStream::kWaitMilliseconds); }

private:
    // Once the thread has been asked to end, the descriptor may be another's.
    void absorb_wake_up() const {
        const MutexLock lock(life_mutex);
        eventfd_t count = 0;
        if (wake_up == wake_up_) {
            eventfd_read(wake_up, &count);
        }
    }

    uint32_t count_;
    int wake_up_;
    ReceivedStream streams_[VEXO_MAX_HANDLES];
    pollfd polled_[VEXO_MAX_HANDLES + 1] = {};  // one for each stream, and the wake-up
};

// The list as it is now: the application may go on changing its own.
Task task_of(const uint32_t* list, int own_wake_up) {
    Task task{{}, end_requests, own_wake_up};
    task.list[0] = handle_count(list);
    std::copy_n(list + 1, task.list[0], task.list + 1);
    return task;
}

// Brings the tokens to one, whoever waits for one or takes one meanwhile.
void bring_to_one(sem_t& reply) {
    int tokens = 0;
    sem_getvalue(&reply, &tokens);
    if (tokens == 0) {
        sem_post(&reply);
    }
    for (; tokens > 1; --tokens) {
        sem_trywait(&reply);
    }
}

void give_reply_tokens(const Task& task) {
    for (uint32_t i = 0; i < task.list[0]; ++i) {
        const Registration handle({task.list[1 + i], ""}, [](Caller) {});
        if (handle) {
            bring_to_one(handle->reply);
        }
    }
}

// The life of a receive thread; see receive_thread().
void* serve(const Task& task) {
    Receiver receiver(task);
    for (;;) {
        cancellation_point();
        {
            const MutexLock pass(pass_mutex);
            if (end_requests.load(std::memory_order_relaxed) != task.end_requests) {
                return PTHREAD_CANCELED;
            }
            if (!receiver.pass()) {
                return nullptr;
            }
        }
        receiver.wait();
    }
}

void* serve_started(void* given) {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    const Task task = *static_cast<Task*>(given);
    delete static_cast<Task*>(given);
    return serve(task);
}

bool start_thread(const Task& task) {
    auto* given = new (std::nothrow) Task(task);
    if (given != nullptr && vexo::start_thread(th_receive, serve_started, given)) {
        return true;
    }
    delete given;
    return false;
}

}  // namespace

void wake_receive_thread() {
    const MutexLock lock(life_mutex);
    wake();
}

ReceivePause::ReceivePause() : lock_(pass_mutex) {}

}  // namespace vexo

using namespace vexo;

// The thread's life. It is started by vexo_thread_init() when recv_thread_init_ok is 0, for the
// handles registered by then, and passes over them whenever something has come for one of them, a
// stream is started or paused, or 20 ms have gone by. It ends at the top of a pass, when it has
// been cancelled or asked to end; or in a pass that finds one of its handles gone. Teardown takes
// the pass mutex, so that no pass runs meanwhile, asks the threads of that time to end, and then
// takes its handle away: a thread that was about to begin a pass waits for the mutex and then sees
// the request. (A request, and not pthread_cancel(), because the thread then unwinds its stack as
// any function does. An application may still cancel it.)
void* receive_thread(void* list) {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    return serve(task_of(static_cast<const uint32_t*>(list), -1));
}

int32_t vexo_thread_init(uint32_t* list) {
    const MutexLock lock(life_mutex);
    if (recv_thread_init_ok != 0) {
        return 0;
    }
    if (wake_up < 0) {
        wake_up = OwnedDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)).release();
    }
    const Task task = task_of(list, wake_up);
    give_reply_tokens(task);
    if (!start_thread(task)) {
        report({0, __func__}, "Error: pthread_create");
        return -1;
    }
    recv_thread_init_ok = 1;
    return 0;
}

int32_t vexo_thread_destroy(void) {
    const MutexLock lock(life_mutex);
    if (recv_thread_init_ok != 0) {
        ++end_requests;
        wake();
        drop_wake_up();
    }
    return 0;
}
