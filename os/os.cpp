// The start of the layer.
#include "os/tables.h"
#include "os/task.h"

void pthread_drv_init(void) {
    vexo::mutexes.release_all();
    vexo::message_queues.release_all();
    vexo::semaphores.release_all();
    vexo::events.release_all();
    vexo::simulated_timers.release_all();
    vexo::timers.release_all();
}
