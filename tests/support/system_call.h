// Which system call the other threads of this process are blocked in.
#ifndef TESTS_SUPPORT_SYSTEM_CALL_H
#define TESTS_SUPPORT_SYSTEM_CALL_H

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <initializer_list>

#include "tests/support/process.h"

namespace test {

inline bool thread_blocked_in(std::initializer_list<long> calls) {
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        long call = -1;  // stays so for a thread that runs
        std::ifstream(thread.path() / "syscall") >> call;
        if (std::find(calls.begin(), calls.end(), call) != calls.end()) {
            return true;
        }
    }
    return false;
}

// Waits until a thread is blocked in one of these calls.
inline bool wait_until_blocked_in(std::initializer_list<long> calls) {
    return wait_until([calls] { return thread_blocked_in(calls); });
}

}  // namespace test

#endif
