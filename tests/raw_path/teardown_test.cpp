// Without this the end of a handle on the raw path could hang, touch what is freed, or close too
// much.
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "tests/end_to_end/application.h"
#include "tests/raw_path/raw_path.h"

using namespace test;
using std::chrono::steady_clock;

namespace {

class RawTeardown : public RawPath {};

// Tried at several moments, since each process has one receive thread to end.
class RawTeardownAtMoment : public RawTeardown, public ::testing::WithParamInterface<int> {
protected:
    // Has the receive thread share the caller's processor, so that the caller interrupts it
    // wherever it is.
    static void share_processor() {
        cpu_set_t here;
        CPU_ZERO(&here);
        CPU_SET(static_cast<size_t>(sched_getcpu()), &here);
        EXPECT_EQ(pthread_setaffinity_np(pthread_self(), sizeof here, &here), 0);
        EXPECT_EQ(pthread_setaffinity_np(th_receive, sizeof here, &here), 0);
        const sched_param priority{.sched_priority = 1};
        pthread_setschedparam(pthread_self(), SCHED_FIFO,
                              &priority);  // where the machine grants it
    }
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Moment, RawTeardownAtMoment, ::testing::Range(1, 9));

TEST_P(RawTeardownAtMoment, InAFloodNeitherHangsNorTouchesWhatIsFreed) {
    const Station first(1, kRaw);
    const Station second(2, kRaw, 0, sim::MacAddress{2, 0, 0, 0, 1, 0xB});
    first.app.start();
    second.app.start();
    ASSERT_TRUE(wait_until([&] { return first.counter() > 10 && second.counter() > 10; }));
    std::atomic<bool> stop{false};
    std::thread flood([&] {  // so that the receive thread is mostly in a pass
        const Bytes frame = controller_frame(144, package(Bytes(1400, 1)));
        while (!stop) {
            robot_->send(frame);
        }
    });
    share_processor();
    std::this_thread::sleep_for(std::chrono::milliseconds(GetParam()));
    const auto start = steady_clock::now();
    EXPECT_EQ(vexo_destroy(second.app.handle), 0);
    EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(1));
    end_receive_thread();
    stop = true;
    flood.join();
    uint8_t mac[6];
    EXPECT_EQ(socket_raw_get_srcmac(1, mac), 0) << "the endpoint stays open";
    robot_->send(controller_frame(144, package({1})));
    EXPECT_NE(receive_next(1, 1440).result, -101);
}

TEST_F(RawTeardown, ClosesDescriptorZero) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    ASSERT_EQ(dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
    close(ends[0]);
    RawSession first(1);
    RawSession second(2);
    first.negotiate_raw(0);
    second.negotiate_raw(0);
    // A connection accepted later would take the number over.
    ASSERT_TRUE(wait_until(
        [&] { return first.control.connections() == 1 && second.control.connections() == 1; }));
    OutputCapture output;
    EXPECT_EQ(vexo_destroy(second.handle), 0);
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
    pollfd writing{ends[1], POLLOUT, 0};
    EXPECT_EQ(poll(&writing, 1, 0), 1);
    EXPECT_NE(writing.revents & POLLERR, 0) << "nobody has the reading end any more";

    // Where there is none to close, the teardown fails, and completes all the same.
    EXPECT_EQ(vexo_destroy(first.handle), -1);
    EXPECT_EQ(output.text(), "Failed to close receive interface\n");
    EXPECT_EQ(check_Handle(first.handle), 0U);
    close(ends[1]);
}
