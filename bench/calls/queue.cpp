// Put and get of the generic queue, on one thread and across two.
#include "os/queue.h"

#include <glib.h>
#include <pthread.h>

#include <cstdlib>
#include <thread>

#include "bench/calls/calls.h"

namespace bench {

namespace {

class LibraryQueue {
public:
    ~LibraryQueue() { queue_destroy(queue_); }
    void put(void* element) { queue_put(queue_, element); }
    void* get() {
        void* taken = nullptr;
        while (queue_get_wait(queue_, &taken) != 0) {  // it may wake to an empty queue
        }
        return taken;
    }

private:
    Queue* queue_ = queue_create();
};

// A list of allocated nodes, under a mutex with priority inheritance and a condition.
class HandWrittenQueue {
public:
    HandWrittenQueue() {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
        pthread_mutex_init(&mutex_, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
    void put(void* element) {
        pthread_mutex_lock(&mutex_);
        auto* node = static_cast<Node*>(std::malloc(sizeof(Node)));
        *node = {element, nullptr};
        (first_ == nullptr ? first_ : last_->next) = node;
        last_ = node;
        pthread_cond_broadcast(&filled_);
        pthread_mutex_unlock(&mutex_);
    }
    void* get() {
        pthread_mutex_lock(&mutex_);
        while (first_ == nullptr) {
            pthread_cond_wait(&filled_, &mutex_);
        }
        Node* const node = first_;
        first_ = node->next;
        void* const element = node->element;
        std::free(node);
        pthread_mutex_unlock(&mutex_);
        return element;
    }

private:
    struct Node {
        void* element;
        Node* next;
    };

    Node* first_ = nullptr;
    Node* last_ = nullptr;
    pthread_mutex_t mutex_;
    pthread_cond_t filled_ = PTHREAD_COND_INITIALIZER;
};

class GlibQueue {
public:
    ~GlibQueue() { g_async_queue_unref(queue_); }
    void put(void* element) { g_async_queue_push(queue_, element); }
    void* get() { return g_async_queue_pop(queue_); }

private:
    GAsyncQueue* queue_ = g_async_queue_new();
};

int element;

template <typename Queue>
void one_thread(benchmark::State& state) {
    Queue queue;
    for (auto _ : state) {
        queue.put(&element);
        benchmark::DoNotOptimize(queue.get());
    }
}

// One thread puts a burst, the other takes it and says so.
template <typename Queue>
void two_threads(benchmark::State& state) {
    constexpr int kBurst = 64;
    Queue there;
    Queue back;
    std::thread taker([&] {
        for (void* end = nullptr; end == nullptr;) {
            for (int i = 0; i < kBurst && end == nullptr; ++i) {
                void* const got = there.get();
                end = got != &element ? got : nullptr;
            }
            back.put(&element);
        }
    });
    for (auto _ : state) {
        for (int i = 0; i < kBurst; ++i) {
            there.put(&element);
        }
        back.get();
    }
    there.put(&there);
    taker.join();
}

}  // namespace

std::vector<CallPair> queue_calls() {
    return {
        {"queue, one thread, hand-written list", one_thread<LibraryQueue>,
         one_thread<HandWrittenQueue>, 1.05},
        {"queue, one thread, GLib's queue", one_thread<LibraryQueue>, one_thread<GlibQueue>, 1.0},
        {"queue, two threads, 64 elements, hand-written list", two_threads<LibraryQueue>,
         two_threads<HandWrittenQueue>, 1.05},
        {"queue, two threads, 64 elements, GLib's queue", two_threads<LibraryQueue>,
         two_threads<GlibQueue>, 1.0}};
}

}  // namespace bench
