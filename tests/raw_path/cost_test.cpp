// What the cyclic calls cost: system calls and allocations.
#include <sys/socket.h>

#include <vector>

#include "tests/raw_path/raw_path.h"
#include "tests/support/allocations.h"
#include "tests/support/system_calls.h"

using namespace test;

namespace {

constexpr size_t kRepetitions = 10;

// A cyclic call, and its system calls in nack mode.
struct CyclicCall {
    const char* name;
    void (*call)(RawSession& session);
    const char* system_calls;
};

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

const CyclicCall kCalls[] = {
    {"set-point", send_set_point, "send "},
    {"input", send_input, "send "},
    {"read", read_package, ""},
};

class RawCost : public RawPath {};

}  // namespace

TEST_F(RawCost, IsOneSystemCallToSendAndNoneToRead) {
    if (!kCanCountSystemCalls) {
        GTEST_SKIP() << "the sanitizer makes system calls of its own";
    }
    ChildProcess application([] {
        RawSession session;
        session.negotiate_raw(1);
        session.start();
        write_u32(session.dataspace() + kInputLengthOffset, 16);
        for (const CyclicCall& cyclic : kCalls) {
            for (size_t i = 0; i < kRepetitions; ++i) {
                const SystemCallSection section;
                cyclic.call(session);
            }
        }
    });
    std::vector<std::string> sections;
    const bool ended_well = application.trace(sections);
    if (application.refused()) {
        GTEST_SKIP() << "the system does not let a process trace its child";
    }
    EXPECT_TRUE(ended_well);
    ASSERT_EQ(sections.size(), std::size(kCalls) * kRepetitions);
    for (size_t i = 0; i < sections.size(); ++i) {
        const CyclicCall& cyclic = kCalls[i / kRepetitions];
        EXPECT_EQ(sections[i], cyclic.system_calls) << cyclic.name;
    }
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they allocate, too
TEST_F(RawCost, IsNoAllocationOfAnyThread) {
    RawSession session;
    session.negotiate_raw(0);
    session.start();
    write_u32(session.dataspace() + kInputLengthOffset, 16);
    const uint8_t values[16] = {};
    const Bytes output = controller_frame(144, package(Bytes(100, 1)));
    const Bytes reply = controller_frame(146, bytes("07 00 6D 00 00 00 00"));
    uint8_t frame[2048];
    for (int i = 0; i < 100; ++i) {
        const uint64_t before = allocations_of_all_threads();
        EXPECT_EQ(session.servo(), 0);
        EXPECT_EQ(vexo_input_data_send(session.handle, 1, values), 0);
        robot_->send(output);
        robot_->send(reply);
        uint8_t buffer[128] = {};
        EXPECT_EQ(vexo_ouput_data_receive(session.handle, 0, buffer, sizeof buffer), 0);
        EXPECT_EQ(recv(robot_->descriptor(), frame, sizeof frame, 0), 68);
        EXPECT_EQ(recv(robot_->descriptor(), frame, sizeof frame, 0), 46);
        if (i > 0) {  // the first may set up what the system's own calls need
            EXPECT_EQ(allocations_of_all_threads(), before);
        }
    }
    const uint64_t before = allocations_of_all_threads();
    EXPECT_NE(session.latest(), Bytes());
    EXPECT_GT(allocations_of_all_threads(), before) << "they are counted";
}
#endif
