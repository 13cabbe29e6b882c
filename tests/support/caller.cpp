#include "tests/support/caller.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <sstream>
#include <string>

#include "tests/support/process.h"

namespace test {

namespace {

// Field `number` of the kernel's record of a thread, 3 being the first after its name.
std::string thread_field(int kernel_id, int number) {
    const std::string record = read_file("/proc/self/task/" + std::to_string(kernel_id) + "/stat");
    const size_t name_end = record.rfind(')');
    if (name_end == std::string::npos) {
        return "";
    }
    std::istringstream fields(record.substr(name_end + 1));
    std::string field;
    for (int at = 3; at <= number; ++at) {
        fields >> field;
    }
    return field;
}

}  // namespace

Caller::Caller(std::function<int()> call)
    : thread_([this, call = std::move(call)] {
          kernel_id_ = gettid();
          result_ = call();
          done_ = true;
      }) {
    wait_until([this] { return kernel_id_ != 0; });
}

Caller::~Caller() {
    if (thread_.joinable()) {
        thread_.join();
    }
}

void Caller::interrupt(int signal) {
    pthread_kill(thread_.native_handle(), signal);
}

bool Caller::sleeps() {
    wait_until([this] { return done_ || state() == 'S'; });
    return !done_;
}

int Caller::result() {
    EXPECT_TRUE(wait_until([this] { return done_.load(); })) << "the call does not return";
    thread_.join();
    return result_;
}

int Caller::kernel_priority() const {
    const std::string field = thread_field(kernel_id_, 18);
    return field.empty() ? 0 : std::stoi(field);
}

char Caller::state() const {
    const std::string field = thread_field(kernel_id_, 3);
    return field.empty() ? '?' : field[0];
}

}  // namespace test
