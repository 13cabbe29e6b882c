// The rows of the timer tables.
#ifndef OS_TIMER_RECORDS_H
#define OS_TIMER_RECORDS_H

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <ctime>

namespace vexo {

using TimerCallback = void (*)(uint32_t index, void* arg);

enum class TimerMode : uint8_t { signal_handler, own_thread, simulated };

struct TimerRecord {
    timer_t timer;              // signal_handler, own_thread
    std::atomic<uint32_t> tid;  // own_thread: kernel id of the thread, 0 until it has started
    pthread_t thread;           // own_thread, otherwise 0
    std::atomic<uint8_t> exit;  // own_thread: the thread is to end
    uint32_t index;             // for the callback: the row, or the slot of a simulated timer
    TimerCallback callback;     // none in signal_handler
    void* arg;
    uint32_t period;  // microseconds
    uint8_t one_shot;
    TimerMode mode;
};

struct SimulatedTimer {
    uint32_t divider;  // ticks per period, at least 1
    uint32_t ticks;
    TimerCallback callback;
    void* arg;
};

}  // namespace vexo

#endif
