// The six tables of the layer: rows, in-use flags, and the view that joins them.
#ifndef OS_TABLES_H
#define OS_TABLES_H

#include <pthread.h>

#include "base/slot_table.h"
#include "os/queue.h"
#include "os/timer_records.h"
#include "os/waitable_word.h"

namespace vexo {

inline InUseFlag mutexqueneuse[40];
inline pthread_mutex_t mutexquene[40];
inline constinit const SlotTable mutexes(mutexqueneuse, mutexquene);

inline InUseFlag queueuse[20];
inline Queue* queuehandle[20];
inline constinit const SlotTable message_queues(queueuse, queuehandle);

inline InUseFlag semqueueuse[30];
inline WaitableWord semqueue[30];  // the word is the count
inline constinit const SlotTable semaphores(semqueueuse, semqueue);

inline InUseFlag eventqueueuse[8];
inline WaitableWord eventqueue[8];  // the word is the set of flags
inline constinit const SlotTable events(eventqueueuse, eventqueue);

inline InUseFlag timersimuthreadqueueuse[3];
inline SimulatedTimer timersimuthreadqueue[3];
inline constinit const SlotTable simulated_timers(timersimuthreadqueueuse, timersimuthreadqueue);

inline InUseFlag timerqueueuse[3];
inline TimerRecord timerqueue[3];
inline constinit const SlotTable timers(timerqueueuse, timerqueue);

}  // namespace vexo

#endif
