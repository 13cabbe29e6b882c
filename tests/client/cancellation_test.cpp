// A thread that the application cancels in a call leaves nothing locked.
#include <cstdio>

#include "tests/client/client_fixture.h"

using namespace test;

namespace {

// The calls that hold a lock, with a peer that answers none of them.
void send_input(Session& session) {
    const uint8_t value = 0;
    vexo_input_data_send(session.handle, 1, &value);
}

void send_set_point(Session& session) {
    const double value = 0;
    cvexo_servoj(session.handle, 0, 0, 0, nullptr, 1, &value);
}

void read_package(Session& session) {
    uint8_t buffer[8];
    vexo_ouput_data_receive(session.handle, 0, buffer, sizeof buffer);
}

void report_unknown(Session& session) {
    find_input_index(session.handle + 5000, "a");
}

void start_thread(Session&) {
    uint32_t list[] = {0};
    vexo_thread_init(list);
}

void end_handle(Session& session) {
    vexo_destroy(session.handle);
}

struct Call {
    void (*make)(Session& session);
    const char* name;
};

void* make_call_cancelled(void* argument) {
    auto& call = *static_cast<std::function<void()>*>(argument);
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    pthread_cancel(pthread_self());
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);  // takes effect where it can
    call();
    pthread_testcancel();
    return nullptr;
}

bool is_free(pthread_mutex_t& mutex) {
    return pthread_mutex_trylock(&mutex) == 0 && pthread_mutex_unlock(&mutex) == 0;
}

}  // namespace

TEST(Cancellation, LeavesNothingLocked) {
    Session session;
    session.negotiate(2);
    session.io.expect(bytes("04 00 55 01"), {});
    session.control.expect(bytes("22 00 6D 00 00 05 0B 00 00 00 00 00 00 00 00 04 01 00 00 00"
                                 " 02 00 13 01 01 0B 00 00 00 00 00 00 00 00"),
                           {});
    OutputCapture output;
    const Call calls[] = {{send_input, "send_input"},     {send_set_point, "send_set_point"},
                          {read_package, "read_package"}, {report_unknown, "report_unknown"},
                          {start_thread, "start_thread"}, {end_handle, "end_handle"}};
    for (const Call& call : calls) {
        SCOPED_TRACE(call.name);
        if (call.make == end_handle) {
            EXPECT_TRUE(session.io.done() && session.control.done()) << "what was sent has come";
        }
        std::function<void()> make = [&] { call.make(session); };
        pthread_t thread;
        ASSERT_EQ(pthread_create(&thread, nullptr, make_call_cancelled, &make), 0);
        void* ended = nullptr;
        ASSERT_EQ(pthread_join(thread, &ended), 0);
        EXPECT_EQ(ended, PTHREAD_CANCELED);
        EXPECT_TRUE(is_free(base_datasend_mutex));
        EXPECT_TRUE(is_free(base_servoj_mutex));
        EXPECT_TRUE(is_free(base_datarecv_mutex));
        ASSERT_EQ(ftrylockfile(stdout), 0);
        funlockfile(stdout);
    }
    EXPECT_EQ(check_Handle(session.handle), 0U) << "the last one was made whole";
    EXPECT_EQ(vexo_thread_destroy(), 0);
    pthread_join(th_receive, nullptr);
}
