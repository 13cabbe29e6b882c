// The thread that serves all sessions of the process.
//
// It waits for descriptors, for one timer and for wake-ups. It runs from the first acquire() to the
// last release(), which joins it. Everything that its handlers own is touched by it alone; other
// threads reach it by wake() only.
#ifndef SESSION_IO_THREAD_H
#define SESSION_IO_THREAD_H

#include <pthread.h>

#include <atomic>
#include <vector>

#include "session/counter.h"
#include "session/object.h"
#include "session/session.h"
#include "session/time.h"

namespace vexo::session {

class IoThread;

// What waits for a descriptor.
class IoHandler {
public:
    virtual void ready(uint32_t events) = 0;

protected:
    ~IoHandler() = default;
};

// What other threads may wake, and what may have a time at which it wants to be woken.
class IoTask : public Object {
public:
    // By the I/O thread: somebody has called wake() since.
    virtual void woken() = 0;
    // By the I/O thread: the time that was scheduled has come.
    virtual void due() = 0;

private:
    friend class IoThread;
    std::atomic<bool> queued_{false};
    IoTask* next_ = nullptr;
    Nanoseconds due_at_ = kNever;
    size_t place_ = SIZE_MAX;  // in the heap
};

class IoThread final : public Object {
public:
    // Starts the thread unless it runs. Null, with the reason, when that cannot be.
    static Ref<IoThread> acquire(VexoSessionError& error);
    // Ends the thread with its last user. Calls that are late may still hold the object.
    static void release();

    // What vexo_session_io_thread() does.
    static int32_t arrange(const VexoSessionThreadOptions& options);

    // Any thread. The task lives until it was woken.
    void wake(Ref<IoTask> task);

    // By the I/O thread only.
    bool watch(int descriptor, uint32_t events, IoHandler& handler);
    void rewatch(int descriptor, uint32_t events, IoHandler& handler);
    void forget(int descriptor);
    void schedule(IoTask& task, Nanoseconds when);
    void unschedule(IoTask& task);

    // When the thread was woken for what it does now; the round before began and ended then.
    struct Rounds {
        Nanoseconds began = 0;
        Nanoseconds realtime_ahead = 0;  // of the monotonic clock
        Nanoseconds began_before = 0;
        Nanoseconds ended_before = 0;
    };
    const Rounds& rounds() const { return rounds_; }
    uint64_t wake_ups() const { return wake_ups_.get(); }

private:
    IoThread();
    ~IoThread() override;
    template <typename T, typename... Arguments>
    friend Ref<T> make(Arguments&&...);

    static void forked();
    bool start(VexoSessionError& error);
    int32_t apply(const VexoSessionThreadOptions& options);
    static void* entry(void* thread);
    void run();
    void begin_round();
    void stop();
    void wake_tasks();
    void forget_woken();
    void serve_due();
    void set_timer();
    void sift_up(size_t place);
    void sift_down(size_t place);
    void put(size_t place, IoTask* task);

    int epoll_;
    int wake_;
    int timer_;
    pthread_t thread_{};
    std::atomic<bool> stopping_{false};
    std::atomic<bool> stopped_{false};
    std::atomic<IoTask*> woken_{nullptr};
    std::vector<IoTask*> heap_;  // by the time they are due
    Nanoseconds timer_set_ = kNever;
    Rounds rounds_;
    OneWriter<uint64_t> wake_ups_;
};

}  // namespace vexo::session

#endif
