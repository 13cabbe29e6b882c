// A transfer on a cyclic path costs two system calls: one select, and one send or receive.
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>

#include "tests/exchange_socket/connection.h"

using namespace test;

namespace {

constexpr int kSystemCallStop = SIGTRAP | 0x80;

// The system calls that a child makes in `action`, between two getppid() as marks.
std::vector<long> system_calls_of(const std::function<void()>& action) {
    const pid_t child = fork();
    if (child == 0) {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        syscall(SYS_getppid);
        action();
        syscall(SYS_getppid);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD);
    std::vector<long> calls;
    bool entering = false;
    while (ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0 &&
           waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
        if (WSTOPSIG(status) != kSystemCallStop) {
            continue;
        }
        entering = !entering;
        user_regs_struct registers{};
        ptrace(PTRACE_GETREGS, child, nullptr, &registers);
        if (entering) {
            calls.push_back(static_cast<long>(registers.orig_rax));
        }
    }
    const auto first = std::find(calls.begin(), calls.end(), SYS_getppid);
    const auto last = std::find(calls.rbegin(), calls.rend(), SYS_getppid).base();
    if (last - first < 2) {
        ADD_FAILURE() << "the child could not be traced";
        return {};
    }
    return {first + 1, last - 1};
}

void expect_select_and(const std::vector<long>& calls, long transfer) {
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_TRUE(calls[0] == SYS_select || calls[0] == SYS_pselect6) << calls[0];
    EXPECT_EQ(calls[1], transfer);
}

}  // namespace

TEST(SocketTransferCost, IsTwoSystemCalls) {
    const Connection connection;
    ASSERT_EQ(send(connection.peer, "x", 1, 0), 1);
    expect_select_and(system_calls_of([&] { socket_send(connection.fd, "x", 1); }), SYS_sendto);
    char byte = 0;
    expect_select_and(system_calls_of([&] { socket_recv(connection.fd, &byte, 1, -1); }),
                      SYS_recvfrom);
}
