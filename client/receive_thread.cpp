#include "client/receive_thread.h"

#include <algorithm>
#include <cstring>

#include "client/received_stream.h"
#include "client/registry.h"
#include "client/vexo.h"

pthread_t th_receive;
uint32_t recv_thread_init_ok;

namespace vexo {

namespace {

// Held by the receive thread during a pass, and never while it waits.
pthread_mutex_t pass_mutex = PTHREAD_MUTEX_INITIALIZER;

void end_pass(void*) {
    pthread_mutex_unlock(&pass_mutex);
}

// The one place where cancellation takes effect outside the wait.
void cancellation_point() {
    int state = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &state);
    pthread_testcancel();
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
}

// A count of handles that failed connections have let grow is cut to what a list can hold.
uint32_t handle_count(const uint32_t* list) {
    return std::min<uint32_t>(list[0], VEXO_MAX_HANDLES);
}

// The handles that one receive thread serves.
class Receiver {
public:
    explicit Receiver(const uint32_t* list) : count_(handle_count(list)) {
        for (uint32_t i = 0; i < count_; ++i) {
            streams_[i] = ReceivedStream(list[1 + i]);
            polled_[i] = {-1, POLLIN, 0};
        }
    }

    // Serves each handle. False when one of them is gone.
    bool pass() {
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

    // Waits until something comes for any handle. May be cancelled.
    void wait() {
        int state = 0;
        pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &state);
        const int ready = poll(polled_, count_, ReceivedStream::kWaitMilliseconds);
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
        if (ready < 0) {
            forget_events();
        }
    }

private:
    void forget_events() {
        for (pollfd& polled : polled_) {
            polled.revents = 0;
        }
    }

    uint32_t count_;
    ReceivedStream streams_[VEXO_MAX_HANDLES];
    pollfd polled_[VEXO_MAX_HANDLES];
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

ReceivePause::ReceivePause() {
    pthread_mutex_lock(&pass_mutex);
}

ReceivePause::~ReceivePause() {
    pthread_mutex_unlock(&pass_mutex);
}

}  // namespace vexo

using namespace vexo;

// The thread's life. It is started once per process, by the first vexo_thread_init(), for the
// handles registered by then, and passes over them whenever something has come for one of them, or
// 5 ms have gone by. It ends when it is cancelled, which takes effect while it waits or as a pass
// begins, never within one; or at a pass that finds one of its handles gone. Teardown takes the
// pass mutex, so that no pass runs meanwhile, cancels the thread, and then takes its handle away: a
// thread that was about to begin a pass waits for the mutex and then meets its cancellation.
void* receive_thread(void* list) {
    int state = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    Receiver receiver(static_cast<const uint32_t*>(list));
    bool all_there = true;
    while (all_there) {
        pthread_mutex_lock(&pass_mutex);
        pthread_cleanup_push(end_pass, nullptr);
        cancellation_point();
        all_there = receiver.pass();
        pthread_cleanup_pop(1);
        if (all_there) {
            receiver.wait();
        }
    }
    return nullptr;
}

int32_t vexo_thread_init(uint32_t* list) {
    if (recv_thread_init_ok != 0) {
        return 0;
    }
    give_reply_tokens(list);
    std::memcpy(served_list, list, (1 + handle_count(list)) * sizeof *list);
    if (pthread_create(&th_receive, nullptr, receive_thread, served_list) != 0) {
        report({0, __func__}, "Error: pthread_create");
        return -1;
    }
    recv_thread_init_ok = 1;
    return 0;
}

int32_t vexo_thread_destroy(void) {
    if (recv_thread_init_ok != 0) {
        pthread_cancel(th_receive);
    }
    return 0;
}
