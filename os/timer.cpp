#include "os/timer.h"

#include <csignal>

#include "base/deadline.h"
#include "base/thread.h"
#include "os/simulated_timer.h"
#include "os/tables.h"

#ifndef sigev_notify_thread_id
#define sigev_notify_thread_id _sigev_un._tid
#endif

namespace {

using vexo::kRefuseFreeRow;
using vexo::TimerMode;
using vexo::TimerRecord;
using vexo::timers;

using SignalHandler = void (*)(int);

constexpr size_t kOwnThreadStackReserve = 16384;
constexpr timespec kExitCheckInterval = {0, 500'000'000};

sigset_t alarm_only() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGALRM);
    return set;
}

// The thread of a timer. The alarm is blocked before anybody can aim it at the thread, which would
// otherwise run the process's handler of it. A callback may free the timer, and its row may be
// taken again before it returns: then the id in the record is not this thread's any more.
void* wait_for_alarms(void* record) {
    TimerRecord& timer = *static_cast<TimerRecord*>(record);
    const sigset_t alarm = alarm_only();
    pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
    const uint32_t own_id = vexo::kernel_thread_id();
    timer.tid = own_id;
    timer.tid.notify_all();
    while (timer.exit == 0 && timer.tid == own_id) {
        if (sigtimedwait(&alarm, nullptr, &kExitCheckInterval) == SIGALRM) {
            timer.callback(timer.index, timer.arg);
        }
    }
    return nullptr;
}

// The callback of a timer may end the timer's own thread: it ends after the callback.
void end_own_thread(TimerRecord& timer) {
    timer.exit = 1;
    if (pthread_equal(timer.thread, pthread_self())) {
        pthread_detach(timer.thread);
    } else {
        pthread_join(timer.thread, nullptr);
    }
}

bool create_posix_timer(TimerRecord& timer, int notification) {
    sigevent event{};
    event.sigev_notify = notification;
    event.sigev_signo = SIGALRM;
    event.sigev_value.sival_ptr = &timer;
    if (notification == SIGEV_THREAD_ID) {
        event.sigev_notify_thread_id = static_cast<pid_t>(timer.tid);
    }
    return timer_create(CLOCK_MONOTONIC, &event, &timer.timer) == 0;
}

bool make_signal_timer(TimerRecord& timer, SignalHandler handler) {
    if (handler == nullptr) {
        return false;
    }
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigaction(SIGALRM, &action, nullptr);
    return create_posix_timer(timer, SIGEV_SIGNAL);
}

bool make_own_thread_timer(TimerRecord& timer, uint32_t stack_size, int32_t priority) {
    const vexo::ThreadPlan plan = {stack_size + kOwnThreadStackReserve, SCHED_FIFO, priority};
    if (!vexo::start_thread(timer.thread, plan, wait_for_alarms, &timer)) {
        return false;
    }
    timer.tid.wait(0);
    if (!create_posix_timer(timer, SIGEV_THREAD_ID)) {
        end_own_thread(timer);
        return false;
    }
    return true;
}

bool make_simulated_timer(TimerRecord& timer) {
    return vexo::start_simulation() &&
           vexo::request_simulated_timer(timer.period, timer.callback, timer.arg, timer.index);
}

bool make_timer(TimerRecord& timer, SignalHandler handler, uint32_t stack_size, int32_t priority) {
    switch (timer.mode) {
        case TimerMode::signal_handler:
            return make_signal_timer(timer, handler);
        case TimerMode::own_thread:
            return make_own_thread_timer(timer, stack_size, priority);
        case TimerMode::simulated:
            return make_simulated_timer(timer);
    }
    return false;
}

TimerMode mode_for(vexo::TimerCallback callback, uint32_t stack_size) {
    if (callback == nullptr) {
        return TimerMode::signal_handler;
    }
    return stack_size != 0 ? TimerMode::own_thread : TimerMode::simulated;
}

// A first expiry of zero disarms.
int32_t arm(TimerRecord& timer, uint64_t first_us, uint64_t interval_us) {
    if (timer.mode == TimerMode::simulated) {
        return 0;
    }
    itimerspec setting{};
    setting.it_value = vexo::plus({}, first_us * vexo::kNanosecondsPerMicrosecond);
    setting.it_interval = vexo::plus({}, interval_us * vexo::kNanosecondsPerMicrosecond);
    return timer_settime(timer.timer, 0, &setting, nullptr);
}

}  // namespace

int32_t pthread_request_timer(uint32_t period_us, void (*handler)(int signal_number),
                              void (*callback)(uint32_t index, void* arg), void* arg,
                              uint32_t stack_size, int32_t priority, uint32_t one_shot) {
    const int32_t row = timers.lowest_free();
    if (row < 0) {
        return -1;
    }
    timers.mark(row);  // before a simulated timer calls back, which may free the row
    TimerRecord& timer = timers[row];
    timer.tid = 0;  // before `exit`: the last thread of the row may still have to see either
    timer.exit = 0;
    timer.thread = 0;
    timer.index = static_cast<uint32_t>(row);
    timer.callback = callback;
    timer.arg = arg;
    timer.period = period_us;
    timer.one_shot = one_shot != 0;
    timer.mode = mode_for(callback, stack_size);
    if (!make_timer(timer, handler, stack_size, priority)) {
        timers.release(row);
        return -1;
    }
    return row;
}

int32_t pthread_start_timer(int32_t index) {
    return timers.on_row(index, kRefuseFreeRow, [](TimerRecord& timer) {
        return arm(timer, timer.period, timer.one_shot != 0 ? 0 : timer.period);
    });
}

int32_t pthread_stop_timer(int32_t index) {
    return timers.on_row(index, kRefuseFreeRow, [](TimerRecord& timer) {
        arm(timer, 0, 0);
        return 0;
    });
}

int32_t pthread_free_timer(int32_t index) {
    return timers.on_row(index, kRefuseFreeRow, [index](TimerRecord& timer) {
        arm(timer, 0, 0);
        if (timer.thread != 0) {
            end_own_thread(timer);
        }
        if (timer.mode == TimerMode::simulated) {
            vexo::free_simulated_timer(static_cast<int32_t>(timer.index));
        } else {
            timer_delete(timer.timer);
        }
        timers.release(index);
        return 0;
    });
}
