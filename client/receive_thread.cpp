#include "client/receive_thread.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "base/mutex_lock.h"
#include "client/received_stream.h"
#include "client/registry.h"
#include "client/vexo.h"

pthread_t th_receive;
uint32_t recv_thread_init_ok;

namespace vexo {

namespace {

// Held by the receive thread during a pass, and never while it waits.
pthread_mutex_t pass_mutex = PTHREAD_MUTEX_INITIALIZER;

// Teardown has asked the thread to end. Stays set: there is no second thread.
std::atomic<bool> end_requested{false};

// Guards the thread's start, its wake-ups and the request that it ends.
pthread_mutex_t life_mutex = PTHREAD_MUTEX_INITIALIZER;

// An eventfd that ends the thread's wait. There is one from its start to the request that it ends.
int wake_up = -1;

void wake() {
    if (wake_up >= 0) {
        eventfd_write(wake_up, 1);
    }
}

void absorb_wake_up() {
    const MutexLock lock(life_mutex);
    eventfd_t count = 0;
    if (wake_up >= 0) {
        eventfd_read(wake_up, &count);
    }
}

void drop_wake_up() {
    if (wake_up >= 0) {
        close(wake_up);
    }
    wake_up = -1;
}

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
    void serve(const uint32_t* list) {
        count_ = handle_count(list);
        for (uint32_t i = 0; i < count_; ++i) {
            streams_[i] = ReceivedStream(list[1 + i]);
            polled_[i] = {-1, POLLIN, 0};
        }
        const MutexLock lock(life_mutex);
        polled_[count_] = {wake_up, POLLIN, 0};
    }

    // Serves each handle. False when one of them is gone.
    bool pass() {
        if (polled_[count_].revents != 0) {
            absorb_wake_up();
        }
        for (uint32_t i = 0; i < count_; ++i) {
            const Registration handle = find_registration(streams_[i].handle());
            if (!handle) {
                report_as({0, "receive_thread"}, "vexo_thread--VexoHandle not found",
                          "vexo_thread---VexoHandle not found");
                return false;
            }
            streams_[i].serve(handle, polled_[i]);
        }
        return true;
    }

    // Waits until something comes for any handle, or the thread is woken.
    void wait() {
        if (poll(polled_, count_ + 1, ReceivedStream::kWaitMilliseconds) < 0) {
            forget_events();
        }
    }

private:
    void forget_events() {
        for (pollfd& polled : polled_) {
            polled.revents = 0;
        }
    }

    uint32_t count_ = 0;
    ReceivedStream streams_[VEXO_MAX_HANDLES];
    pollfd polled_[VEXO_MAX_HANDLES + 1] = {};  // one for each stream, and the wake-up
};

// The list as it was when the thread was started: the application may go on changing its own.
uint32_t served_list[1 + VEXO_MAX_HANDLES];

void give_reply_tokens(const uint32_t* list) {
    for (uint32_t i = 0, count = handle_count(list); i < count; ++i) {
        const Registration handle = find_registration(list[1 + i]);
        if (handle) {
            sem_init(&handle->reply, 0, 1);
        }
    }
}

}  // namespace

void wake_receive_thread() {
    const MutexLock lock(life_mutex);
    wake();
}

ReceivePause::ReceivePause() {
    pthread_mutex_lock(&pass_mutex);
}

ReceivePause::~ReceivePause() {
    pthread_mutex_unlock(&pass_mutex);
}

}  // namespace vexo

using namespace vexo;

// The thread's life. It is started once per process, by the first vexo_thread_init(), for the
// handles registered by then, and passes over them whenever something has come for one of them, a
// stream is started or paused, or 20 ms have gone by. It ends at the top of a pass, when it has
// been cancelled; or in a pass that finds one of its handles gone. Teardown takes the pass mutex,
// so that no pass runs meanwhile, asks the thread to end, and then takes its handle away: a thread
// that was about to begin a pass waits for the mutex and then sees the request. (A request, and not
// pthread_cancel(), because the thread then unwinds its stack as any function does. An application
// may still cancel it.)
void* receive_thread(void* list) {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    Receiver receiver;
    receiver.serve(static_cast<const uint32_t*>(list));
    for (;;) {
        cancellation_point();
        {
            const MutexLock pass(pass_mutex);
            if (end_requested.load(std::memory_order_relaxed)) {
                return PTHREAD_CANCELED;
            }
            if (!receiver.pass()) {
                return nullptr;
            }
        }
        receiver.wait();
    }
}

int32_t vexo_thread_init(uint32_t* list) {
    const MutexLock lock(life_mutex);
    if (recv_thread_init_ok != 0) {
        return 0;
    }
    give_reply_tokens(list);
    std::memcpy(served_list, list, (1 + handle_count(list)) * sizeof *list);
    if (wake_up < 0) {
        wake_up = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    }
    if (pthread_create(&th_receive, nullptr, receive_thread, served_list) != 0) {
        report({0, __func__}, "Error: pthread_create");
        return -1;
    }
    recv_thread_init_ok = 1;
    return 0;
}

int32_t vexo_thread_destroy(void) {
    const MutexLock lock(life_mutex);
    if (recv_thread_init_ok != 0) {
        end_requested.store(true, std::memory_order_relaxed);
        wake();
        drop_wake_up();
    }
    return 0;
}
