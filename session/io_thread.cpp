#include "session/io_thread.h"

#include <sched.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/timerfd.h>

#include <array>
#include <mutex>

#include "base/thread.h"
#include "session/descriptor.h"
#include "session/error.h"
#include "session/handle_table.h"
#include "session/structure.h"

namespace vexo::session {

namespace {

constexpr size_t kStackSize = 256 << 10;
constexpr size_t kEventsAtOnce = 64;

// The one thread, and how it is to run.
struct Process {
    std::mutex mutex;
    IoThread* thread = nullptr;
    uint32_t users = 0;
    bool watches_forks = false;
    VexoSessionThreadOptions options{};
};
constinit Process process;

class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_;
};

}  // namespace

Ref<IoThread> IoThread::acquire(VexoSessionError& error) {
    const std::lock_guard lock(process.mutex);
    if (process.thread == nullptr) {
        auto thread = make<IoThread>();
        if (!thread->start(error)) {
            return {};
        }
        thread->keep();
        process.thread = thread.get();
    }
    if (!process.watches_forks) {
        process.watches_forks = pthread_atfork(nullptr, nullptr, forked) == 0;
    }
    ++process.users;
    return Ref<IoThread>::share(process.thread);
}

void IoThread::release() {
    const std::lock_guard lock(process.mutex);
    if (--process.users == 0) {
        const auto last = Ref<IoThread>::adopt(std::exchange(process.thread, nullptr));
        last->stop();
    }
}

void IoThread::stop() {
    stopping_.store(true);
    eventfd_write(wake_, 1);
    pthread_join(thread_, nullptr);
    stopped_.store(true);
    forget_woken();
}

int32_t IoThread::arrange(const VexoSessionThreadOptions& options) {
    const std::lock_guard lock(process.mutex);
    const int32_t result =
        process.thread != nullptr ? process.thread->apply(options) : VEXO_SESSION_OK;
    if (result == VEXO_SESSION_OK) {
        process.options = options;
    }
    return result;
}

// A child has neither the thread nor a use for what it served.
void IoThread::forked() {
    new (&process.mutex) std::mutex;
    process.thread = nullptr;
    process.users = 0;
    abandon_handles();
}

IoThread::IoThread()
    : epoll_(above_standard(epoll_create1(EPOLL_CLOEXEC))),
      wake_(above_standard(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))),
      timer_(above_standard(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK))) {}

IoThread::~IoThread() {
    for (const int descriptor : {epoll_, wake_, timer_}) {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
}

bool IoThread::start(VexoSessionError& error) {
    epoll_event event{EPOLLIN, {.ptr = nullptr}};
    if (epoll_ < 0 || wake_ < 0 || timer_ < 0 ||
        epoll_ctl(epoll_, EPOLL_CTL_ADD, wake_, &event) != 0 ||
        epoll_ctl(epoll_, EPOLL_CTL_ADD, timer_, &event) != 0) {
        error = system_failure(VEXO_SESSION_SYSTEM, "the I/O thread has no descriptors", errno);
        return false;
    }
    const SignalsBlocked blocked;
    if (!start_thread(thread_, {kStackSize, SCHED_OTHER, 0}, entry, this)) {
        error = system_failure(VEXO_SESSION_SYSTEM, "the I/O thread cannot be started", errno);
        return false;
    }
    if (apply(process.options) != VEXO_SESSION_OK) {
        error.size = sizeof error;
        vexo_session_error(&error);
        stop();
        return false;
    }
    return true;
}

int32_t IoThread::apply(const VexoSessionThreadOptions& options) {
    sched_param parameter{};
    parameter.sched_priority = options.priority;
    const int refused = pthread_setschedparam(thread_, options.policy, &parameter);
    if (refused != 0) {
        return tell(system_failure(
            refused == EPERM ? VEXO_SESSION_NOT_PERMITTED : VEXO_SESSION_BAD_ARGUMENT,
            "the I/O thread cannot have this policy and priority", refused));
    }
    cpu_set_t processors;
    CPU_ZERO(&processors);
    for (int i = 0; i < CPU_SETSIZE; ++i) {
        if (options.processor == 0 || options.processor == i + 1) {
            CPU_SET(i, &processors);
        }
    }
    const int failed = pthread_setaffinity_np(thread_, sizeof processors, &processors);
    return failed == 0 ? VEXO_SESSION_OK
                       : tell(system_failure(VEXO_SESSION_BAD_ARGUMENT,
                                             "the I/O thread cannot have this processor", failed));
}

void* IoThread::entry(void* thread) {
    pthread_setname_np(pthread_self(), "vexo-session");
    prctl(PR_SET_TIMERSLACK, 1);
    static_cast<IoThread*>(thread)->run();
    return nullptr;
}

void IoThread::run() {
    std::array<epoll_event, kEventsAtOnce> events;
    while (!stopping_.load(std::memory_order_relaxed)) {
        const int count = epoll_wait(epoll_, events.data(), kEventsAtOnce, -1);
        begin_round();
        bool timer_or_wake = false;
        for (int i = 0; i < count; ++i) {
            auto* handler = static_cast<IoHandler*>(events[static_cast<size_t>(i)].data.ptr);
            if (handler != nullptr) {
                handler->ready(events[static_cast<size_t>(i)].events);
            } else {
                timer_or_wake = true;
            }
        }
        if (timer_or_wake) {
            wake_tasks();
            serve_due();
        }
        set_timer();
        rounds_.ended_before = monotonic_ns();
    }
    wake_tasks();
}

void IoThread::begin_round() {
    rounds_.began_before = rounds_.began;
    rounds_.began = monotonic_ns();
    const Nanoseconds realtime = realtime_ns();
    // How far the clocks are apart lies between these two. What is known already stays as long as
    // it does, too: so an interruption in between turns no order of arrivals around.
    const Nanoseconds least = realtime - monotonic_ns();
    const Nanoseconds most = realtime - rounds_.began;
    rounds_.realtime_ahead = std::clamp(rounds_.realtime_ahead, least, most);
    wake_ups_.add();
}

// The queue is one of the task's owners while it is in it.
void IoThread::wake(Ref<IoTask> task) {
    if (task->queued_.exchange(true)) {
        return;
    }
    task->keep();
    task->next_ = woken_.load(std::memory_order_relaxed);
    while (!woken_.compare_exchange_weak(task->next_, task.get())) {
    }
    eventfd_write(wake_, 1);
    if (stopped_.load()) {
        forget_woken();
    }
}

// Nobody will serve them.
void IoThread::forget_woken() {
    IoTask* next = woken_.exchange(nullptr);
    while (next != nullptr) {
        const Ref<IoTask> task = Ref<IoTask>::adopt(next);
        next = task->next_;
    }
}

void IoThread::wake_tasks() {
    eventfd_t ignored = 0;
    eventfd_read(wake_, &ignored);
    IoTask* next = woken_.exchange(nullptr);
    while (next != nullptr) {
        const Ref<IoTask> task = Ref<IoTask>::adopt(next);
        next = task->next_;
        task->queued_.store(false);
        task->woken();
    }
}

void IoThread::serve_due() {
    uint64_t ignored = 0;
    if (read(timer_, &ignored, sizeof ignored) > 0) {
        timer_set_ = kNever;
    }
    const Nanoseconds now = monotonic_ns();
    while (!heap_.empty() && heap_.front()->due_at_ <= now) {
        const Ref<IoTask> task = Ref<IoTask>::share(heap_.front());
        schedule(*task, kNever);
        task->due();
    }
}

// The timer is only moved when something is due earlier than it: a later time is found when it has
// expired.
void IoThread::set_timer() {
    const Nanoseconds earliest = heap_.empty() ? kNever : heap_.front()->due_at_;
    if (earliest < timer_set_) {
        const itimerspec time{{0, 0}, to_timespec(std::max<Nanoseconds>(earliest, 1))};
        timerfd_settime(timer_, TFD_TIMER_ABSTIME, &time, nullptr);
        timer_set_ = earliest;
    }
}

bool IoThread::watch(int descriptor, uint32_t events, IoHandler& handler) {
    epoll_event event{events, {.ptr = &handler}};
    return epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

void IoThread::rewatch(int descriptor, uint32_t events, IoHandler& handler) {
    epoll_event event{events, {.ptr = &handler}};
    epoll_ctl(epoll_, EPOLL_CTL_MOD, descriptor, &event);
}

void IoThread::forget(int descriptor) {
    epoll_ctl(epoll_, EPOLL_CTL_DEL, descriptor, nullptr);
}

// ---- The heap ----------------------------------------------------------------------------------

void IoThread::put(size_t place, IoTask* task) {
    heap_[place] = task;
    task->place_ = place;
}

void IoThread::schedule(IoTask& task, Nanoseconds when) {
    if (task.place_ == SIZE_MAX) {
        task.due_at_ = when;
        heap_.push_back(&task);
        task.place_ = heap_.size() - 1;
        sift_up(task.place_);
        return;
    }
    const bool earlier = when < task.due_at_;
    task.due_at_ = when;
    earlier ? sift_up(task.place_) : sift_down(task.place_);
}

void IoThread::unschedule(IoTask& task) {
    if (task.place_ == SIZE_MAX) {
        return;
    }
    schedule(task, std::numeric_limits<Nanoseconds>::min());  // to the top
    IoTask* last = heap_.back();
    heap_.pop_back();
    if (last != &task) {
        put(0, last);
        sift_down(0);
    }
    task.place_ = SIZE_MAX;
}

void IoThread::sift_up(size_t place) {
    IoTask* task = heap_[place];
    while (place > 0 && task->due_at_ < heap_[(place - 1) / 2]->due_at_) {
        put(place, heap_[(place - 1) / 2]);
        place = (place - 1) / 2;
    }
    put(place, task);
}

void IoThread::sift_down(size_t place) {
    IoTask* task = heap_[place];
    for (;;) {
        size_t child = 2 * place + 1;
        if (child + 1 < heap_.size() && heap_[child + 1]->due_at_ < heap_[child]->due_at_) {
            ++child;
        }
        if (child >= heap_.size() || task->due_at_ <= heap_[child]->due_at_) {
            break;
        }
        put(place, heap_[child]);
        place = child;
    }
    put(place, task);
}

}  // namespace vexo::session

using namespace vexo::session;

extern "C" int32_t vexo_session_io_thread(const VexoSessionThreadOptions* options) {
    VexoSessionThreadOptions taken;
    if (!take(taken, options)) {
        return tell(VEXO_SESSION_BAD_ARGUMENT, "the size of the options is not set");
    }
    if (taken.processor < 0 || taken.processor > CPU_SETSIZE) {
        return tell(VEXO_SESSION_BAD_ARGUMENT, "there is no processor %d", taken.processor - 1);
    }
    return IoThread::arrange(taken);
}
