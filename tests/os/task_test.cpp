// Without this a task could get another stack, name, processor or scheduling than it asks for.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>

#include <string>

#include "os/os.h"
#include "tests/os/support.h"
#include "tests/support/process.h"

namespace {

// What a task sees of itself.
struct View {
    int32_t seen = pthread_request_sem(0);
    pthread_t thread{};
    size_t stack_size = 0;
    int policy = -1;
    int priority = -1;
};

void* look(void* arg) {
    View& view = *static_cast<View*>(arg);
    view.thread = pthread_self();
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, &view.stack_size);
    pthread_attr_destroy(&attributes);
    sched_param parameter{};
    pthread_getschedparam(pthread_self(), &view.policy, &parameter);
    view.priority = parameter.sched_priority;
    pthread_sem_signal(view.seen);
    return nullptr;
}

View view_from_task(uint32_t stack_size) {
    View view;
    EXPECT_EQ(pthread_create_task(look, &view, stack_size), 0);
    EXPECT_EQ(pthread_sem_wait(view.seen, 10000, 0), 0);
    EXPECT_FALSE(pthread_equal(view.thread, pthread_self()));
    pthread_free_sem(view.seen);
    return view;
}

std::string thread_name() {
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof name);
    return name;
}

cpu_set_t own_cpus() {
    cpu_set_t cpus;
    pthread_getaffinity_np(pthread_self(), sizeof cpus, &cpus);
    return cpus;
}

bool same(const cpu_set_t& a, const cpu_set_t& b) {
    return CPU_EQUAL(&a, &b) != 0;
}

TEST(Task, HasTheStackItAsksForButNotLessThanTheLeast) {
    for (const auto& [wanted, expected] : {std::pair{0u, 16384u},
                                           {16383u, 16384u},
                                           {16384u, 16384u},
                                           {262144u, 262144u},
                                           {1u << 20, 1u << 20}}) {
        const size_t stack_size = view_from_task(wanted).stack_size;
        EXPECT_GE(stack_size, expected);
        if (!test::sanitized()) {  // the sanitizers widen small stacks
            EXPECT_EQ(stack_size, expected);
        }
    }
}

TEST(Task, DoesNotInheritRealTimeScheduling) {
    if (!test::may_run_realtime()) {
        GTEST_SKIP() << "no right to real-time scheduling";
    }
    ASSERT_EQ(pthread_set_param(7, PTHREAD_POLICY_FIFO), 0);
    const View view = view_from_task(0);
    ASSERT_EQ(pthread_set_param(0, 0), 0);
    EXPECT_EQ(view.policy, SCHED_OTHER);
    EXPECT_EQ(view.priority, 0);
}

// A thread that nobody joins would keep its stack.
TEST(Task, LeavesNothingBehind) {
    int32_t ended = pthread_request_sem(0);
    const auto end = [](void* semaphore) -> void* {
        pthread_sem_signal(*static_cast<int32_t*>(semaphore));
        return nullptr;
    };
    constexpr uint32_t kStackSize = 64U << 20;
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(pthread_create_task(end, &ended, kStackSize), 0);
        ASSERT_EQ(pthread_sem_wait(ended, 10000, 0), 0);
    }
    const auto mapped_pages = [] { return std::stoull(test::read_file("/proc/self/statm")); };
    if (!test::sanitized()) {  // whose shadow memory is counted too
        EXPECT_TRUE(test::wait_until([&] { return mapped_pages() * 4096 < 20ULL * kStackSize; }));
    }
}

TEST(Task, CannotBeMadeWithoutMemoryForItsStack) {
    if (test::sanitized()) {
        GTEST_SKIP() << "the sanitizers need their address space";
    }
    rlimit before{};
    getrlimit(RLIMIT_AS, &before);
    const rlimit little{256U << 20, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_AS, &little), 0);
    EXPECT_EQ(pthread_create_task([](void* arg) { return arg; }, nullptr, 3U << 30), -1);
    setrlimit(RLIMIT_AS, &before);
}

TEST(Task, SetsItsNameIfShortEnough) {
    EXPECT_EQ(pthread_set_taskaffinity(-1, "fifteen letters"), 0);
    EXPECT_EQ(thread_name(), "fifteen letters");
    EXPECT_EQ(pthread_set_taskaffinity(-1, "sixteen letters!"), 0);
    EXPECT_EQ(thread_name(), "fifteen letters");
    EXPECT_EQ(pthread_set_taskaffinity(-1, ""), 0);
    EXPECT_EQ(thread_name(), "fifteen letters");
}

TEST(Task, BindsItselfToAProcessor) {
    const cpu_set_t all = own_cpus();
    EXPECT_EQ(pthread_set_taskaffinity(-1, ""), 0);
    EXPECT_EQ(pthread_set_taskaffinity(INT8_MIN, ""), 0);
    EXPECT_TRUE(same(own_cpus(), all));
    if (!CPU_ISSET(127, &all)) {
        EXPECT_EQ(pthread_set_taskaffinity(127, "refused"), 0);
        EXPECT_TRUE(same(own_cpus(), all));
        EXPECT_EQ(thread_name(), "refused");
    }
    for (int8_t cpu = 0; cpu < 127; ++cpu) {
        if (CPU_ISSET(static_cast<unsigned>(cpu), &all)) {
            cpu_set_t one;
            CPU_ZERO(&one);
            CPU_SET(static_cast<unsigned>(cpu), &one);
            EXPECT_EQ(pthread_set_taskaffinity(cpu, ""), 0);
            EXPECT_TRUE(same(own_cpus(), one)) << int{cpu};
        }
    }
}

TEST(Task, SetsItsSchedulingIfTheSystemAllows) {
    EXPECT_EQ(pthread_set_param(0, 0), 0);
    EXPECT_EQ(pthread_set_param(0, 2), 0);
    EXPECT_EQ(pthread_set_param(5, 0), -1) << "no priorities in normal scheduling";
    EXPECT_EQ(pthread_set_param(0, PTHREAD_POLICY_FIFO), -1);
    EXPECT_EQ(pthread_set_param(-1, PTHREAD_POLICY_FIFO), -1);
    EXPECT_EQ(pthread_set_param(100, PTHREAD_POLICY_FIFO), -1);
    if (!test::may_run_realtime()) {
        GTEST_SKIP() << "no right to real-time scheduling";
    }
    test::Caller task([] {
        EXPECT_EQ(pthread_set_param(99, PTHREAD_POLICY_FIFO), 0);
        EXPECT_EQ(pthread_set_param(42, PTHREAD_POLICY_FIFO), 0);
        sched_param parameter{};
        EXPECT_EQ(sched_getparam(0, &parameter), 0);
        EXPECT_EQ(parameter.sched_priority, 42);
        return sched_getscheduler(0);
    });
    EXPECT_EQ(task.result(), SCHED_FIFO);
    EXPECT_EQ(sched_getscheduler(0), SCHED_OTHER) << "only the calling thread is meant";
}

}  // namespace
