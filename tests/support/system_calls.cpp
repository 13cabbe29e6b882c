#include "tests/support/system_calls.h"

#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <stdexcept>

namespace test {

namespace {

constexpr int kFailed = 1;
constexpr int kTracingRefused = 77;

// A call that neither the library nor the tests make otherwise.
void mark() {
    syscall(SYS_getppid);
}

std::string name_of(uint64_t call) {
    switch (call) {
        case SYS_select:
        case SYS_pselect6:
        case SYS_poll:
        case SYS_ppoll:
            return "wait ";
        case SYS_sendto:
            return "send ";
        case SYS_recvfrom:
            return "receive ";
        default:
            return std::to_string(call) + " ";
    }
}

// Sorts the calls of a traced thread into sections.
class Recorder {
public:
    explicit Recorder(std::vector<std::string>& sections) : sections_(sections) {}

    void stopped(pid_t pid) {
        __ptrace_syscall_info info{};
        ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof info, &info);
        if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
            entered(info.entry.nr);
        }
    }

private:
    void entered(uint64_t call) {
        if (call == SYS_getppid) {
            inside_ = !inside_;
            if (inside_) {
                sections_.emplace_back();
            }
        } else if (inside_) {
            sections_.back() += name_of(call);
        }
    }

    std::vector<std::string>& sections_;
    bool inside_ = false;
};

// Of a stop that is not one at a system call: the signal to pass on.
int signal_of(int status) {
    return WSTOPSIG(status) == SIGSTOP ? 0 : WSTOPSIG(status);
}

}  // namespace

ChildProcess::ChildProcess(std::function<void()> body) : pid_(-1), start_(-1) {
    int pipe_ends[2];
    if (pipe(pipe_ends) != 0) {
        throw std::runtime_error("pipe");
    }
    std::fflush(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        close(pipe_ends[1]);
        char tracing = 0;
        if (read(pipe_ends[0], &tracing, 1) == 1) {
            if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
                _exit(kTracingRefused);
            }
            raise(SIGSTOP);
        }
        body();
        std::fflush(nullptr);
        _exit(::testing::Test::HasFailure() ? kFailed : 0);
    }
    close(pipe_ends[0]);
    start_ = pipe_ends[1];
}

ChildProcess::~ChildProcess() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    start();
}

void ChildProcess::start() {
    if (start_ >= 0) {
        close(start_);
    }
    start_ = -1;
}

bool ChildProcess::ended_well(int status) {
    pid_ = -1;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool ChildProcess::run() {
    start();
    int status = 0;
    waitpid(pid_, &status, 0);
    return ended_well(status);
}

bool ChildProcess::trace(std::vector<std::string>& sections) {
    const char tracing = 1;
    if (write(start_, &tracing, 1) != 1) {
        return false;
    }
    start();
    Recorder recorder(sections);
    int status = 0;
    waitpid(pid_, &status, 0);
    if (WIFSTOPPED(status)) {
        ptrace(PTRACE_SETOPTIONS, pid_, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    }
    while (WIFSTOPPED(status)) {
        const bool at_call = WSTOPSIG(status) == (SIGTRAP | 0x80);
        if (at_call) {
            recorder.stopped(pid_);
        }
        ptrace(PTRACE_SYSCALL, pid_, nullptr, at_call ? 0 : signal_of(status));
        waitpid(pid_, &status, 0);
    }
    refused_ = WIFEXITED(status) && WEXITSTATUS(status) == kTracingRefused;
    return ended_well(status);
}

SystemCallSection::SystemCallSection() {
    mark();
}

SystemCallSection::~SystemCallSection() {
    mark();
}

}  // namespace test
