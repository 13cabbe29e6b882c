// What the cyclic calls cost: their system calls, counted by tracing a child process, and their
// allocations, counted by standing in for malloc.
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <functional>
#include <vector>

#include "tests/raw_path/raw_path.h"

namespace {

std::atomic<int> allocations;

}  // namespace

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kCountsAllocations = false;
#else
constexpr bool kCountsAllocations = true;

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* old, size_t size);

void* malloc(size_t size) noexcept {
    ++allocations;
    return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) noexcept {
    ++allocations;
    return __libc_calloc(count, size);
}
void* realloc(void* old, size_t size) noexcept {
    ++allocations;
    return __libc_realloc(old, size);
}
}
#endif

using namespace test;

namespace {

constexpr int kCalls = 10;
constexpr long kMark = SYS_getppid;  // made before and after the calls of interest

class RawCost : public RawPath {};

// Runs in the child: the calling thread is traced from here on.
void run_traced(const std::function<void()>& calls) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
        _exit(1);
    }
    raise(SIGSTOP);
    syscall(kMark);
    calls();
    syscall(kMark);
    _exit(0);
}

// The system calls of a child until it ends.
std::vector<long> trace(pid_t child) {
    std::vector<long> found;
    bool entering = true;
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFSTOPPED(status)) {
        return found;
    }
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    while (ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0 &&
           waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
        user_regs_struct registers{};
        ptrace(PTRACE_GETREGS, child, nullptr, &registers);
        if (WSTOPSIG(status) == (SIGTRAP | 0x80)) {
            if (entering) {
                found.push_back(static_cast<long>(registers.orig_rax));
            }
            entering = !entering;
        }
    }
    return found;
}

// What `call` makes each time on a streaming handle in nack mode; empty, too, when the machine
// lets nobody trace.
std::vector<long> system_calls_of(const std::function<void(RawSession&)>& call, bool& traced) {
    const pid_t child = fork();
    if (child == 0) {
        RawSession session;
        session.negotiate_raw(1);
        session.start();
        write_u32(session.dataspace() + kInputLengthOffset, 16);
        run_traced([&] {
            for (int i = 0; i < kCalls; ++i) {
                call(session);
            }
        });
    }
    const std::vector<long> all = trace(child);
    const auto begin = std::find(all.begin(), all.end(), kMark);
    const auto end = begin == all.end() ? begin : std::find(begin + 1, all.end(), kMark);
    traced = end != all.end();
    return traced ? std::vector<long>(begin + 1, end) : std::vector<long>();
}

struct Case {
    const char* name;
    void (*call)(RawSession& session);
    std::vector<long> expected;
};
void PrintTo(const Case& one, std::ostream* out) {
    *out << one.name;
}
class RawSystemCalls : public RawCost, public ::testing::WithParamInterface<Case> {};

void send_set_point(RawSession& session) {
    session.servo();
}
void send_input(RawSession& session) {
    const uint8_t values[16] = {};
    vexo_input_data_send(session.handle, 1, values);
}
void read_package(RawSession& session) {
    uint8_t buffer[64];
    vexo_ouput_data_receive(session.handle, 0, buffer, sizeof buffer);
}

}  // namespace

TEST_P(RawSystemCalls, AreAsFewAsCanBe) {
    bool traced = false;
    const std::vector<long> made = system_calls_of(GetParam().call, traced);
    if (!traced) {
        GTEST_SKIP() << "this machine lets nobody trace";
    }
    EXPECT_EQ(made, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cyclic, RawSystemCalls,
    ::testing::Values(Case{"set-point", send_set_point, std::vector<long>(kCalls, SYS_sendto)},
                      Case{"input", send_input, std::vector<long>(kCalls, SYS_sendto)},
                      Case{"read", read_package, {}}));

TEST_F(RawCost, NoThreadAllocatesInACycle) {
    if (!kCountsAllocations) {
        GTEST_SKIP() << "the sanitizer has an allocator of its own";
    }
    RawSession session;
    session.negotiate_raw(0);
    session.start();
    write_u32(session.dataspace() + kInputLengthOffset, 16);
    const uint8_t values[16] = {};
    const Bytes output = controller_frame(144, package(Bytes(100, 1)));
    const Bytes reply = controller_frame(146, bytes("07 00 6D 00 00 00 00"));
    uint8_t frame[2048];
    for (int i = 0; i < 100; ++i) {
        const int before = allocations;
        EXPECT_EQ(session.servo(), 0);
        EXPECT_EQ(vexo_input_data_send(session.handle, 1, values), 0);
        robot_->send(output);
        robot_->send(reply);
        uint8_t buffer[128] = {};
        EXPECT_EQ(vexo_ouput_data_receive(session.handle, 0, buffer, sizeof buffer), 0);
        EXPECT_EQ(recv(robot_->descriptor(), frame, sizeof frame, 0), 68);
        EXPECT_EQ(recv(robot_->descriptor(), frame, sizeof frame, 0), 46);
        if (i > 0) {  // the first may set up what the system's own calls need
            EXPECT_EQ(allocations, before);
        }
    }
    const int before = allocations;
    EXPECT_NE(session.latest(), Bytes());
    EXPECT_GT(allocations, before) << "they are counted";
}
