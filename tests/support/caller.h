// Calls that wait.
#ifndef TESTS_SUPPORT_CALLER_H
#define TESTS_SUPPORT_CALLER_H

#include <atomic>
#include <functional>
#include <thread>

namespace test {

// One call on a thread of its own.
class Caller {
public:
    explicit Caller(std::function<int()> call);
    ~Caller();
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;

    void interrupt(int signal);
    // Whether the call has put its thread to sleep now.
    bool asleep() const { return !done_ && state() == 'S'; }
    // Waits until the call has put its thread to sleep. False when it returns instead.
    bool sleeps();
    bool done() const { return done_; }
    // Waits for the call to return, and fails the test when it doesn't.
    int result();
    // Of the thread, as the kernel has it at this moment: -1 - N at real-time priority N.
    int kernel_priority() const;

private:
    char state() const;

    std::atomic<bool> done_{false};
    std::atomic<int> kernel_id_{0};
    int result_ = 0;
    std::thread thread_;
};

}  // namespace test

#endif
