// Small things that every test of a process with threads, files and sockets needs.
#ifndef TESTS_SUPPORT_PROCESS_H
#define TESTS_SUPPORT_PROCESS_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <set>
#include <string>

namespace test {

// Waits until `condition` holds, looking every millisecond. Returns whether it did in time.
bool wait_until(const std::function<bool()>& condition,
                std::chrono::milliseconds limit = std::chrono::seconds(10));

// Processor time that this process has used, all threads together.
std::chrono::microseconds cpu_time();

// Keeps the load of others out of what the test measures, by a real-time priority where the machine
// grants one. Threads made from now on inherit it.
void run_ahead_of_others();

// The descriptors that this process has open.
std::set<int> open_descriptors();

// The threads of this process, those that have ended (and can be joined) left out.
ptrdiff_t thread_count();

// A loopback address of this process alone, so that tests which need fixed ports can run beside
// each other; `number` (1 to 250) tells several addresses of one process apart.
std::string own_loopback(int number = 1);

// The exit status of a child that runs `body` and ends with its result.
int in_child(const std::function<int()>& body);

// Gives up all privileges of this process for good. Returns whether it could.
bool give_up_privileges();

// The whole of a file; empty when there is none.
std::string read_file(const std::string& path);

}  // namespace test

#endif
