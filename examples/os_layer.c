/* Two tasks at work through the operating-system layer: a sampler, paced by a timer through a
   semaphore, posts readings to a message queue; a collector adds them up and tells through an event
   group when it has seen them all. Needs the right to real-time scheduling, for the timer. */
#include <stdio.h>

#include "os/os.h"

enum { SAMPLES = 20, PERIOD_US = 5000, TASK_STACK_BYTES = 65536, PATIENCE_MS = 5000 };

static const uint32_t ALL_COLLECTED = 1u << 0;
static const uint32_t SOME_MISSING = 1u << 1;

typedef struct {
    int32_t due;      /* semaphore: one signal per sample to take */
    int32_t readings; /* message queue: allocated ints, null at the end */
    int32_t progress; /* event group */
    int32_t timer;
    int sum; /* the collector's, until it sets an event */
} Plant;

/* Runs on the thread of the simulated timers, which it must not hold up. */
static void on_tick(uint32_t index, void* arg) {
    (void)index;
    const Plant* plant = arg;
    pthread_sem_signal(plant->due);
}

static void* sample(void* arg) {
    const Plant* plant = arg;
    pthread_set_taskaffinity(-1, "sampler");
    for (int i = 1; i <= SAMPLES && pthread_sem_wait(plant->due, PATIENCE_MS, 0) == 0; ++i) {
        int* reading = os_malloc(sizeof *reading);
        if (reading == NULL) {
            break;
        }
        *reading = i;
        if (pthread_post_queue(plant->readings, reading) != 0) {
            os_free(reading);
        }
    }
    pthread_post_queue(plant->readings, NULL);
    return NULL;
}

static void* collect(void* arg) {
    Plant* plant = arg;
    pthread_set_taskaffinity(-1, "collector");
    int count = 0;
    void* reading = NULL;
    while (pthread_pend_wait_queue(plant->readings, &reading, 0) == 0 && reading != NULL) {
        plant->sum += *(const int*)reading;
        os_free(reading);
        ++count;
    }
    pthread_event_set(plant->progress, count == SAMPLES ? ALL_COLLECTED : SOME_MISSING);
    return NULL;
}

static int request_all(Plant* plant) {
    plant->due = pthread_request_sem(0);
    plant->readings = pthread_request_queue();
    plant->progress = pthread_request_event();
    plant->timer = pthread_request_timer(PERIOD_US, NULL, on_tick, plant, 0, 0, 0);
    return plant->due >= 0 && plant->readings >= 0 && plant->progress >= 0 && plant->timer >= 0;
}

/* Frees what was requested; a row that was not is refused without harm. */
static void free_all(const Plant* plant) {
    pthread_free_timer(plant->timer); /* first: it signals the semaphore */
    pthread_free_event(plant->progress);
    pthread_free_queue(plant->readings);
    pthread_free_sem(plant->due);
}

/* Returns the events that the collector set, 0 when it could not be started. */
static uint32_t run(Plant* plant) {
    if (pthread_create_task(collect, plant, TASK_STACK_BYTES) != 0) {
        return 0;
    }
    if (pthread_create_task(sample, plant, TASK_STACK_BYTES) != 0) {
        pthread_post_queue(plant->readings, NULL); /* the end, in the sampler's place */
    }
    uint32_t events = 0;
    pthread_event_wait(plant->progress, ALL_COLLECTED | SOME_MISSING, &events, 0);
    return events;
}

int main(void) {
    Plant plant = {-1, -1, -1, -1, 0};
    pthread_drv_init();
    if (!request_all(&plant)) {
        fprintf(stderr, "No semaphore, queue, event group or real-time timer to be had\n");
        free_all(&plant);
        return 1;
    }
    const uint32_t events = run(&plant);
    free_all(&plant);
    if (events != ALL_COLLECTED) {
        fprintf(stderr, "Readings are missing\n");
        return 1;
    }
    printf("%d readings, sum %d\n", SAMPLES, plant.sum);
    return 0;
}
