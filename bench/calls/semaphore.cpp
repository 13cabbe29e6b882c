// Two threads that wake each other in turns.
#include "os/semaphore.h"

#include <semaphore.h>

#include <atomic>
#include <thread>

#include "bench/calls/calls.h"

namespace bench {

namespace {

class LibrarySemaphore {
public:
    ~LibrarySemaphore() { pthread_free_sem(row_); }
    void signal() { pthread_sem_signal(row_); }
    void wait() { pthread_sem_wait(row_, 0, 0); }

private:
    int32_t row_ = pthread_request_sem(0);
};

class PosixSemaphore {
public:
    PosixSemaphore() { sem_init(&semaphore_, 0, 0); }
    ~PosixSemaphore() { sem_destroy(&semaphore_); }
    void signal() { sem_post(&semaphore_); }
    void wait() { sem_wait(&semaphore_); }

private:
    sem_t semaphore_;
};

template <typename Semaphore>
void hand_over(benchmark::State& state) {
    Semaphore there;
    Semaphore back;
    std::atomic<bool> done = false;
    std::thread other([&] {
        while (!done) {
            there.wait();
            back.signal();
        }
    });
    for (auto _ : state) {
        there.signal();
        back.wait();
    }
    done = true;
    there.signal();
    other.join();
}

}  // namespace

std::vector<CallPair> semaphore_calls() {
    return {
        {"semaphore, there and back", hand_over<LibrarySemaphore>, hand_over<PosixSemaphore>, 1.3}};
}

}  // namespace bench
