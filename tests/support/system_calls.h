// A child process, and the system calls that a part of it makes.
#ifndef TESTS_SUPPORT_SYSTEM_CALLS_H
#define TESTS_SUPPORT_SYSTEM_CALLS_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace test {

// The thread sanitizer's own locks make system calls of theirs.
#ifdef __SANITIZE_THREAD__
constexpr bool kCanCountSystemCalls = false;
#else
constexpr bool kCanCountSystemCalls = true;
#endif

// Runs a body in a process of its own. It is forked at once, so make it before anything that
// starts a thread; the body waits for run() or trace().
class ChildProcess {
public:
    explicit ChildProcess(std::function<void()> body);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Runs the body to its end. Its failed expectations are printed; false when there were any.
    bool run();

    // The same, and stores the system calls of the body's sections (below), in order.
    // False also when the system refuses to trace: then refused() says so.
    bool trace(std::vector<std::string>& sections);
    bool refused() const { return refused_; }

private:
    void start();
    bool ended_well(int status);

    pid_t pid_;
    int start_;  // a pipe's end, closed to let the body begin
    bool refused_ = false;
};

// In a traced body: the calling thread's system calls between construction and destruction are a
// section of their own: the calls' names, each followed by a blank. select and its variants are
// "wait", sendto is "send", recvfrom is "receive", and any other is its number.
class SystemCallSection {
public:
    SystemCallSection();
    ~SystemCallSection();
    SystemCallSection(const SystemCallSection&) = delete;
    SystemCallSection& operator=(const SystemCallSection&) = delete;
};

}  // namespace test

#endif
