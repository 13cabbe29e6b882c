// Without this packages could be torn, late or mixed up, or the thread that receives them go
// astray.
#include <semaphore.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstring>

#include "tests/client/client_fixture.h"

using namespace test;
using std::chrono::milliseconds;
using ::testing::HasSubstr;

namespace {

// A package with its length word, 'U', recipe id 1, and `size` - 4 bytes of `fill`.
Bytes package(uint16_t size, uint8_t fill) {
    return Bytes{static_cast<uint8_t>(size), static_cast<uint8_t>(size >> 8), 'U', 1} +
           Bytes(size - 4U, fill);
}

// A session with a recipe of 40 bytes a package.
struct StreamSession : Session {
    explicit StreamSession(int number = 1) : Session(number) {
        negotiate(2);
        set_package_length(40);
    }

    // As a recipe does, perhaps while the receive thread runs.
    void set_package_length(uint32_t length) const {
        auto* member = reinterpret_cast<uint32_t*>(dataspace() + kOutputLengthOffset);
        std::atomic_ref<uint32_t>(*member).store(length);
    }

    void stream(const Bytes& data) { receive.expect({}, data); }

    Bytes latest(uint32_t size = 20480) const {
        Bytes buffer(size, 0xEE);
        EXPECT_EQ(vexo_ouput_data_receive(handle, 0, buffer.data(), size), 0);
        return buffer;
    }
    bool shows(const Bytes& expected) const {
        return wait_until([&] {
            Bytes buffer = latest();
            buffer.resize(expected.size());
            return buffer == expected;
        });
    }
};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr double kMostOfACore = 0.5;
#else
constexpr double kMostOfACore = 0.01;
#endif

// Ends the receive thread as an application may after its last handle.
void join_receive_thread() {
    vexo_thread_destroy();
    pthread_join(th_receive, nullptr);
}

}  // namespace

TEST(OutputStream, ShowsTheLatestPackage) {
    StreamSession s;
    uint8_t buffer[64] = {};
    EXPECT_EQ(vexo_ouput_data_receive(s.handle, 0, buffer, sizeof buffer), 301);
    s.start();
    EXPECT_EQ(s.latest(4), Bytes(4, 0xEE)) << "nothing has come yet";
    s.stream(package(40, 1));
    EXPECT_TRUE(s.shows(package(40, 1)));
    s.stream(package(40, 2));
    EXPECT_TRUE(s.shows(package(40, 2)));

    Bytes nine = package(40, 2);
    nine.resize(9);
    EXPECT_EQ(s.latest(10), nine + Bytes{0xEE}) << "one byte less than the buffer";
    EXPECT_EQ(s.latest(1), Bytes{0xEE});
    EXPECT_EQ(s.latest(40), package(40, 2));
    EXPECT_EQ(vexo_ouput_data_receive(s.handle, 0, buffer, 0), 0);
    EXPECT_EQ(buffer[0], 0);
    EXPECT_EQ(vexo_ouput_data_receive(s.handle + 9999, 0, buffer, 1), -1);
    ASSERT_EQ(pthread_mutex_trylock(&base_datarecv_mutex), 0) << "every return unlocks";
    pthread_mutex_unlock(&base_datarecv_mutex);

    s.pause();
    EXPECT_EQ(vexo_ouput_data_receive(s.handle, 0, buffer, sizeof buffer), 301);
    EXPECT_TRUE(wait_until([&] {
        const uint8_t* store = s.dataspace() + kStoreOffset;
        return std::all_of(store, store + 20480, [](uint8_t byte) { return byte == 0; });
    }));
    s.start();
    s.stream(package(40, 3));
    EXPECT_TRUE(s.shows(package(40, 3)));
    join_receive_thread();
}

TEST(OutputStream, StaysInStepWhenTheRecipeChangesWithinAPackage) {
    StreamSession s;
    s.start();
    Bytes begin = package(40, 1);
    begin.resize(30);
    s.stream(begin);
    ASSERT_TRUE(s.receive.done());
    for (const uint32_t length : {0U, 20U, 60U, 20U}) {
        s.pause();
        s.set_package_length(length);
        s.start();
    }
    s.stream(Bytes(10, 1) + package(20, 2));
    EXPECT_TRUE(s.shows(package(20, 2)));
    join_receive_thread();
}

TEST(OutputStream, DoesNotServeHandlesRegisteredLater) {
    StreamSession first(1);
    first.start();
    const pthread_t thread = th_receive;
    StreamSession second(2);
    second.start();
    EXPECT_EQ(th_receive, thread) << "there is one thread";
    second.stream(package(40, 5));
    first.stream(package(40, 6));
    EXPECT_TRUE(first.shows(package(40, 6)));
    ASSERT_TRUE(second.receive.done());
    EXPECT_EQ(second.latest(4), Bytes(4, 0xEE));
    join_receive_thread();
}

TEST(OutputStream, IsNotReadFromAFreedHandleWhoseSlotIsStillSeen) {
    Session first(1);
    Session second(2);
    first.connect();
    ASSERT_EQ(vexo_destroy(first.handle), 0);
    ASSERT_EQ(check_Handle(first.handle), 1U);
    uint8_t byte = 0;
    EXPECT_EQ(vexo_ouput_data_receive(first.handle, 0, &byte, 1), -1);
}

TEST(OutputStream, LeavesOneTokenForASetPointThatWaits) {
    StreamSession s;
    auto* tokens = reinterpret_cast<sem_t*>(s.dataspace() + kReplyTokensOffset);
    for (int i = 0; i < 3; ++i) {
        sem_post(tokens);
    }
    s.start();
    int left = 0;
    sem_getvalue(tokens, &left);
    EXPECT_EQ(left, 1);
    join_receive_thread();
}

TEST(OutputStream, IsNotStartedByARefusal) {
    StreamSession s;
    OutputCapture output;
    s.io.expect(bytes("03 00 53"), bytes("07 00 53 02 00 00 00"));
    EXPECT_EQ(vexo_output_start(s.handle, 0), 2);
    EXPECT_EQ(s.dataspace()[kStreamingOffset], 0);
    EXPECT_EQ(recv_thread_init_ok, 0U);
    EXPECT_EQ(vexo_thread_destroy(), 0) << "there is no thread to end";
}

TEST(ReceiveThread, CostsNextToNothingWhenNothingStreamsOrThePeerIsGone) {
    StreamSession idle(1);
    StreamSession closed(2);
    OutputCapture output;
    idle.start();
    idle.pause();
    closed.start();
    // Of a core, over a second.
    const auto busy = [] {
        const auto before = cpu_time();
        std::this_thread::sleep_for(milliseconds(1000));
        return static_cast<double>((cpu_time() - before).count()) / 1e6;
    };
    EXPECT_LT(busy(), kMostOfACore) << "one is paused and one is silent";
    closed.receive.expect({}, {}, ScriptedPeer::After::close);
    ASSERT_TRUE(closed.receive.done());
    EXPECT_LT(busy(), kMostOfACore) << "one is paused and one has lost its peer";
    EXPECT_EQ(output.text(), "") << "an end is no failure";
    join_receive_thread();
}

TEST(ReceiveThread, ReportsABrokenConnectionOnce) {
    StreamSession s;
    OutputCapture output;
    log_init();
    s.start();
    s.receive.expect({}, package(40, 1), ScriptedPeer::After::reset);
    ASSERT_TRUE(
        wait_until([&] { return output.text().find("Receive failed") != std::string::npos; }));
    std::this_thread::sleep_for(milliseconds(100));
    EXPECT_EQ(output.text(), "Receive failed - Connection reset by peer (errno: 104)\n");
    join_receive_thread();
}

TEST(ReceiveThread, ThatTheSystemRefusesIsReported) {
    StreamSession s;
    pthread_attr_t usual;
    ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
    pthread_attr_t huge = usual;
    pthread_attr_setstacksize(&huge, size_t{1} << 50);
    ASSERT_EQ(pthread_setattr_default_np(&huge), 0);
    OutputCapture output;
    s.io.expect(bytes("03 00 53"), bytes("07 00 53 00 00 00 00"));
    EXPECT_EQ(vexo_output_start(s.handle, 0), -1);
    EXPECT_EQ(output.text(), "Error: pthread_create\n");
    EXPECT_EQ(recv_thread_init_ok, 0U);
    EXPECT_EQ(s.dataspace()[kStreamingOffset], 1);
    ASSERT_EQ(pthread_setattr_default_np(&usual), 0);
    s.start();
    s.stream(package(40, 1));
    EXPECT_TRUE(s.shows(package(40, 1)));
    join_receive_thread();
}

TEST(ReceiveThread, OfTheApplicationsOwnServesAfterADestroy) {
    StreamSession s;
    s.start();
    Bytes half = package(40, 1);
    half.resize(30);
    s.stream(half);
    ASSERT_TRUE(s.receive.done());
    join_receive_thread();
    uint32_t list[] = {1, s.handle};
    EXPECT_EQ(vexo_thread_init(list), 0) << "starts nothing";
    const auto threads = thread_count();
    pthread_t own;
    ASSERT_EQ(pthread_create(&own, nullptr, receive_thread, list), 0);
    EXPECT_EQ(thread_count(), threads + 1);
    s.stream(Bytes(10, 1));
    EXPECT_TRUE(s.shows(package(40, 1))) << "goes on within the package";
    pthread_cancel(own);
    pthread_join(own, nullptr);
}

TEST(ReceiveThread, TakesAListOfTheApplicationsOwnAfterAFailedConnection) {
    OutputCapture output;
    uint32_t lost = 0;
    ASSERT_EQ(vexo_create_handle(&lost, "127.0.0.1"), 0);
    ASSERT_EQ(vexo_create(lost, own_loopback(9).c_str(), nullptr, 2, nullptr), -1);
    StreamSession s;
    s.start();
    ASSERT_EQ(pthread_join(th_receive, nullptr), 0) << "the count is one too high";
    EXPECT_THAT(output.text(), HasSubstr("\nvexo_thread--VexoHandle not found\n"));
    uint32_t list[] = {1, s.handle};
    recv_thread_init_ok = 0;
    ASSERT_EQ(vexo_thread_init(list), 0);
    s.stream(package(40, 1));
    EXPECT_TRUE(s.shows(package(40, 1)));
    join_receive_thread();
}

TEST(ReceiveThread, HasNoDescriptorOfAStandardStream) {
    StreamSession s;
    // The peers must not accept a connection on a stream that is closed.
    ASSERT_TRUE(
        wait_until([&] { return s.control.connections() == 1 && s.receive.connections() == 1; }));
    const int kept = dup(STDOUT_FILENO);
    for (const int stream : {0, 1, 2}) {
        close(stream);
    }
    s.start();
    const std::set<int> open = open_descriptors();
    dup2(kept, STDOUT_FILENO);
    dup2(kept, STDERR_FILENO);
    EXPECT_GT(*open.begin(), 2);
    join_receive_thread();
}

TEST(ReceiveThread, EndsWhenAHandleIsGone) {
    // As an application would start it: a list with a handle that is not registered.
    StreamSession s;
    OutputCapture output;
    log_init();
    uint32_t list[] = {2, s.handle, s.handle + 5000};
    ASSERT_EQ(vexo_thread_init(list), 0);
    ASSERT_EQ(pthread_join(th_receive, nullptr), 0);
    EXPECT_EQ(output.text(), "vexo_thread--VexoHandle not found\n");
    EXPECT_THAT(Session::finished_log("sys_log"),
                HasSubstr(" vexo_thread---VexoHandle not found\n"));
    EXPECT_EQ(vexo_thread_init(list), 0) << "it is not started again";
    EXPECT_EQ(recv_thread_init_ok, 1U);
}
