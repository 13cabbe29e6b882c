// A session over TCP, from end to end.
#include <poll.h>

#include <thread>

#include "tests/session/stream_reader.h"

namespace test {
namespace {

using ::testing::HasSubstr;
using Session = SessionFixture;

TEST_F(Session, StreamsEveryPackageInOrder) {
    open();  // before the controller is there
    start_controller();
    auto options = sized<VexoSessionStreamOptions>();
    options.counter_variable = "package_counter";
    options.time_variable = "controller_time";
    VexoSessionStream* opened = stream(
        {"package_counter", "controller_time", "actual_joint_positions", "heartbeat"}, &options);
    ASSERT_NE(opened, nullptr);
    auto from_oldest = sized<VexoSessionCursorOptions>();
    from_oldest.from_oldest = 1;
    VexoSessionCursor* cursor = nullptr;
    ASSERT_OK(vexo_session_cursor_open(opened, &from_oldest, &cursor));
    auto counter = sized<VexoSessionVariable>();
    ASSERT_OK(vexo_session_stream_find(opened, "package_counter", &counter));

    Records records(opened);
    uint64_t number = 0;
    int64_t counted = 0;
    while (number < 500 && !HasFailure()) {
        ASSERT_OK(vexo_session_cursor_wait(cursor, kSoon));
        const size_t count = records.read(cursor, 64);
        for (size_t i = 0; i < count; ++i) {
            const VexoSessionPackage package = records.package(i);
            int64_t value = 0;
            ASSERT_EQ(vexo_session_get_i64(&counter, records.record(i), &value, 1), 1);
            EXPECT_EQ(package.number, ++number);
            EXPECT_EQ(package.lost, counted == 0 ? 0 : value - counted - 1);
            EXPECT_EQ(package.stamped, 1);
            EXPECT_LE(package.arrival_ns, package.stored_ns);
            counted = value;
        }
        EXPECT_EQ(records.lost, 0U);
    }
    EXPECT_GE(statistics().packages, 500U);
    auto clock = sized<VexoSessionClock>();
    ASSERT_OK(vexo_session_clock(session_, &clock));
    EXPECT_EQ(clock.valid, 1U);
    EXPECT_EQ(status().state, uint32_t{VEXO_SESSION_STATE_STREAMING});
}

TEST_F(Session, ComesBackAfterACutWithTheSameRecipe) {
    start_controller();
    open();
    VexoSessionStream* opened = stream({"package_counter"});
    VexoSessionCursor* cursor = nullptr;
    ASSERT_OK(vexo_session_cursor_open(opened, nullptr, &cursor));
    const char* names[] = {"heartbeat"};
    VexoSessionInputs* inputs = nullptr;
    ASSERT_OK(vexo_session_inputs_open(session_, names, 1, kSoon, &inputs));
    const int64_t beat = 7;
    ASSERT_OK(vexo_session_inputs_set_i64(inputs, "heartbeat", &beat, 1));

    for (const sim::Port port : {sim::Port::io, sim::Port::control, sim::Port::stream}) {
        controller_->disconnect(port, sim::Break::reset);
        EXPECT_LT(event(VEXO_SESSION_EVENT_CUT).error.code, 0);
        EXPECT_GT(event(VEXO_SESSION_EVENT_BACK).span_ns, 0);
        const uint32_t connection = status().connection;
        Records records(opened);
        do {
            ASSERT_OK(vexo_session_cursor_wait(cursor, kSoon));
            ASSERT_EQ(records.read(cursor, 1), 1U);
        } while (records.package(0).connection < connection);
    }
    // What was given before the cut is not sent after it.
    EXPECT_EQ(vexo_session_inputs_send(inputs), VEXO_SESSION_NOT_SET);
    EXPECT_EQ(controller_->counters().inputs, 0U);
    EXPECT_EQ(statistics().cuts, 3U);
}

TEST_F(Session, TellsOfACutAmongManyAttempts) {
    start_controller();
    open(impatient());
    ASSERT_OK(vexo_session_wait(session_, VEXO_SESSION_STATE_READY, kSoon));
    controller_.reset();
    ASSERT_TRUE(wait_until([&] { return status().attempts >= 20; }));
    EXPECT_EQ(event(VEXO_SESSION_EVENT_CUT).error.code, VEXO_SESSION_CUT);
    uint64_t told = 0;
    auto next = sized<VexoSessionEvent>();
    while (vexo_session_next_event(session_, &position_, &next, 0) == VEXO_SESSION_OK) {
        ++told;
    }
    EXPECT_LT(told, 15U);
}

TEST_F(Session, TellsTheNearestOfAnUnknownName) {
    start_controller();
    open();
    const char* names[] = {"Package_Countr"};
    VexoSessionStream* opened = nullptr;
    EXPECT_EQ(vexo_session_stream_open(session_, names, 1, nullptr, kSoon, &opened),
              VEXO_SESSION_UNKNOWN_NAME);
    EXPECT_THAT(last_error().remedy, HasSubstr("package_counter"));
    VexoSessionStream* other = stream({"uptime_seconds"});
    auto field = sized<VexoSessionVariable>();
    EXPECT_EQ(vexo_session_stream_find(other, "uptime", &field), VEXO_SESSION_UNKNOWN_NAME);
    EXPECT_THAT(last_error().remedy, HasSubstr("uptime_seconds"));
    auto entry = sized<VexoSessionVariable>();
    ASSERT_OK(vexo_session_find(session_, VEXO_SESSION_OUTPUT, "actual_joint_positions", &entry));
    EXPECT_EQ(entry.elements, 6U);
    EXPECT_EQ(entry.element, uint32_t{VEXO_TYPE_F64});
}

TEST_F(Session, SendsInputsInTheirTypes) {
    start_controller();
    open();
    const char* names[] = {"application_step", "payload_centre_request", "application_text"};
    VexoSessionInputs* inputs = nullptr;
    ASSERT_OK(vexo_session_inputs_open(session_, names, 3, kSoon, &inputs));
    const double centre[] = {0.1, 0.2, 0.3};
    const int64_t too_large = 128;
    const double step = -5;
    EXPECT_EQ(vexo_session_inputs_set_i64(inputs, "application_step", &too_large, 1),
              VEXO_SESSION_WRONG_TYPE);
    EXPECT_EQ(vexo_session_inputs_set_f64(inputs, "payload_centre_request", centre, 2),
              VEXO_SESSION_WRONG_TYPE);
    EXPECT_OK(vexo_session_inputs_set_f64(inputs, "application_step", &step, 1));
    EXPECT_OK(vexo_session_inputs_set_f64(inputs, "payload_centre_request", centre, 3));
    EXPECT_EQ(vexo_session_inputs_send(inputs), VEXO_SESSION_NOT_SET);
    EXPECT_OK(vexo_session_inputs_set_text(inputs, "application_text", "hello"));
    EXPECT_OK(vexo_session_inputs_send(inputs));
    ASSERT_TRUE(controller_->wait_for_inputs(1));
    EXPECT_EQ(controller_->input("application_step"), sim::Simulator::Bytes{0xFB});
    EXPECT_EQ(controller_->input("application_text")[4], 'o');
}

TEST_F(Session, CallsMethodsAndSendsSetPoints) {
    start_controller();
    open();
    ASSERT_OK(vexo_session_wait(session_, VEXO_SESSION_STATE_READY, kSoon));
    const double half = 50;
    const VexoSessionArgument percent{VEXO_TYPE_F64, 0, 0, 0, &half};
    EXPECT_OK(
        vexo_session_call(session_, "setPercentVelocity", &percent, 1, 0, nullptr, nullptr, kSoon));
    EXPECT_EQ(controller_->speed_percent(), 50);
    const double too_much = 101;
    const VexoSessionArgument refused{VEXO_TYPE_F64, 0, 0, 0, &too_much};
    EXPECT_EQ(
        vexo_session_call(session_, "setPercentVelocity", &refused, 1, 0, nullptr, nullptr, kSoon),
        VEXO_SESSION_REFUSED);
    EXPECT_EQ(last_error().status, int{static_cast<uint8_t>(sim::Status::bad_argument)});
    controller_->set_digital_inputs(0x1234);
    uint64_t bits = 0;
    size_t bytes = sizeof bits;
    EXPECT_OK(
        vexo_session_call(session_, "getAllDigitalInputBits", nullptr, 0, 0, &bits, &bytes, kSoon));
    EXPECT_EQ(bits, 0x1234U);
    int64_t round_trip = 0;
    EXPECT_OK(vexo_session_ping(session_, kSoon, &round_trip));
    EXPECT_GT(round_trip, 0);

    const double joints[6] = {};
    auto point = sized<VexoSessionSetPoint>();
    point.count = 6;
    point.joints = joints;
    for (int i = 0; i < 10; ++i) {
        EXPECT_OK(vexo_session_servo(session_, &point, kSoon));
    }
    EXPECT_OK(vexo_session_call(session_, "servoStop", &percent, 1, 0, nullptr, nullptr, kSoon));
    controller_->raise_error(3);
    EXPECT_EQ(vexo_session_servo(session_, &point, kSoon), VEXO_SESSION_REFUSED);
    EXPECT_EQ(controller_->counters().set_points, 10U);
}

TEST_F(Session, NeverTakesALateReplyForTheNext) {
    start_controller();
    open();
    ASSERT_OK(vexo_session_wait(session_, VEXO_SESSION_STATE_READY, kSoon));
    controller_->set_digital_inputs(5);
    controller_->inject(sim::parse_fault("type=m,delay=200"));
    uint64_t bits = 0;
    size_t bytes = sizeof bits;
    const auto call = [&](const char* method, int64_t limit) {
        return vexo_session_call(session_, method, nullptr, 0, 0, &bits, &bytes, limit);
    };
    EXPECT_EQ(call("getAllDigitalOutputBits", 20'000), VEXO_SESSION_TIMED_OUT);
    EXPECT_OK(call("getAllDigitalInputBits", kSoon));
    EXPECT_EQ(bits, 5U);
    EXPECT_EQ(status().connection, 1U);
    // When one never comes, the connection is given up.
    controller_->inject(sim::parse_fault("type=m,lost"));
    EXPECT_EQ(call("getAllDigitalOutputBits", 20'000), VEXO_SESSION_TIMED_OUT);
    EXPECT_NE(call("getAllDigitalInputBits", 500'000), VEXO_SESSION_OK);
    EXPECT_EQ(event(VEXO_SESSION_EVENT_CUT).error.code, VEXO_SESSION_OUT_OF_STEP);
    EXPECT_GT(event(VEXO_SESSION_EVENT_BACK).span_ns, 0);
    EXPECT_OK(call("getAllDigitalInputBits", kSoon));
}

TEST_F(Session, ClosesWhileOthersWaitInside) {
    start_controller();
    open();
    VexoSessionStream* opened = stream({"uptime_seconds"});
    VexoSessionCursor* cursor = nullptr;
    ASSERT_OK(vexo_session_cursor_open(opened, nullptr, &cursor));
    int descriptor = -1;
    ASSERT_OK(vexo_session_cursor_descriptor(cursor, &descriptor));
    pollfd polled{descriptor, POLLIN, 0};
    EXPECT_EQ(poll(&polled, 1, 20'000), 1);
    std::thread event_reader([this] {
        uint64_t position = 0;
        auto next = sized<VexoSessionEvent>();
        int32_t result = VEXO_SESSION_OK;
        while (result == VEXO_SESSION_OK) {
            result = vexo_session_next_event(session_, &position, &next, kSoon);
        }
        EXPECT_EQ(result, VEXO_SESSION_CLOSED);
    });
    std::thread reader([cursor] {
        std::vector<uint8_t> room(4096);
        int32_t result = VEXO_SESSION_OK;
        while (result == VEXO_SESSION_OK) {
            uint32_t count = 0;
            result = vexo_session_cursor_wait(cursor, kSoon);
            vexo_session_cursor_read(cursor, room.data(), 1, &count, nullptr);
        }
        EXPECT_EQ(result, VEXO_SESSION_CLOSED);
    });
    VexoSession* const session = session_;
    EXPECT_OK(vexo_session_close(session));
    event_reader.join();
    reader.join();
    EXPECT_EQ(vexo_session_close(session), VEXO_SESSION_CLOSED);
    session_ = nullptr;
}

TEST_F(Session, ASlowReaderLosesWithACountAndHoldsUpNobody) {
    start_controller();
    open();
    auto options = sized<VexoSessionStreamOptions>();
    options.ring_s = 1;
    VexoSessionStream* opened = stream({"package_counter"}, &options);
    VexoSessionCursor* slow = nullptr;
    VexoSessionCursor* fast = nullptr;
    ASSERT_OK(vexo_session_cursor_open(opened, nullptr, &slow));
    ASSERT_OK(vexo_session_cursor_open(opened, nullptr, &fast));
    Records records(opened);
    uint64_t begin = 0;
    uint64_t end = 0;
    while (end < begin + 2000 && !HasFailure()) {
        ASSERT_OK(vexo_session_cursor_wait(fast, kSoon));
        if (const size_t count = records.read(fast, 1000); count > 0) {
            EXPECT_EQ(records.lost, 0U);
            begin = begin == 0 ? records.package(0).number : begin;
            end = records.package(count - 1).number;
        }
    }
    ASSERT_GT(records.read(slow, 1), 0U);
    EXPECT_GE(records.lost, 1000U);
    EXPECT_LE(records.package(0).number, begin + records.lost + 1);
    EXPECT_EQ(statistics().overwritten, records.lost);
}

TEST_F(Session, ReadsListsThatEndWithAFullPage) {
    start_controller();
    controller_->inject(sim::parse_fault("filled=200"));
    open();
    const char* names[] = {"heartbeat"};
    VexoSessionInputs* inputs = nullptr;
    ASSERT_OK(vexo_session_inputs_open(session_, names, 1, kSoon, &inputs));
    const VexoSessionStatus now = status();
    for (const auto& [kind, count] : {std::pair{VEXO_SESSION_OUTPUT, now.outputs},
                                      {VEXO_SESSION_INPUT, now.inputs},
                                      {VEXO_SESSION_METHOD, now.methods}}) {
        EXPECT_TRUE(count >= 200 && count % 200 == 0) << count;
        auto last = sized<VexoSessionVariable>();
        EXPECT_OK(vexo_session_entry(session_, kind, count - 1, &last));
        auto found = sized<VexoSessionVariable>();
        EXPECT_OK(vexo_session_find(session_, kind, last.name, &found));
        EXPECT_EQ(found.id, last.id);
    }
    EXPECT_EQ(now.attempts, 0U);
}

// What the new catalogue has not got is told of; the rest goes on.
TEST_F(Session, TellsOfVariablesThatAreGone) {
    start_controller();
    open(impatient());
    VexoSessionStream* lasting = stream({"package_counter"});
    VexoSessionCursor* cursor = nullptr;
    ASSERT_OK(vexo_session_cursor_open(lasting, nullptr, &cursor));
    const char* gone_names[] = {"heartbeat"};
    VexoSessionInputs* gone = nullptr;
    ASSERT_OK(vexo_session_inputs_open(session_, gone_names, 1, kSoon, &gone));
    controller_->inject(sim::parse_fault("reboot=100,rename=heartbeat:pulse"));
    EXPECT_EQ(event(VEXO_SESSION_EVENT_CATALOGUE).count, 2U);
    const VexoSessionError told = event(VEXO_SESSION_EVENT_ERROR).error;
    EXPECT_EQ(told.code, VEXO_SESSION_CATALOGUE_CHANGED);
    EXPECT_THAT(told.cause, HasSubstr("heartbeat"));
    StreamReader(lasting).read_up_to(2);
    const double one = 1;
    EXPECT_OK(vexo_session_inputs_set_f64(gone, "heartbeat", &one, 1));
    EXPECT_EQ(vexo_session_inputs_send(gone), VEXO_SESSION_CATALOGUE_CHANGED);
    EXPECT_OK(vexo_session_inputs_close(gone));
    const char* new_names[] = {"pulse"};
    EXPECT_OK(vexo_session_inputs_open(session_, new_names, 1, kSoon, &gone));
    // The stream's own variable goes.
    controller_->inject(sim::parse_fault("reboot=100,retype=package_counter:6"));
    EXPECT_EQ(event(VEXO_SESSION_EVENT_CATALOGUE).count, 3U);
    int32_t result = VEXO_SESSION_OK;
    Records records(lasting);
    const auto start = std::chrono::steady_clock::now();
    while ((result = vexo_session_cursor_wait(cursor, kSoon)) == VEXO_SESSION_OK) {
        records.read(cursor, 256);
    }
    EXPECT_EQ(result, VEXO_SESSION_CATALOGUE_CHANGED);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::microseconds(kSoon / 2));
    EXPECT_OK(vexo_session_stream_close(lasting, kSoon));
    EXPECT_NE(stream({"package_counter"}), nullptr);
}

// Answers and packages that make no sense cost a connection at most.
TEST_F(Session, OvercomesNonsense) {
    start_controller();
    auto options = impatient();
    open(options);
    VexoSessionStream* opened = stream({"package_counter"});
    ASSERT_NE(opened, nullptr);
    StreamReader reader(opened);
    for (const char* fault : {"type=V,length=0",      "type=V,length=65535",
                              "type=v,length=2",      "type=v,size=4",
                              "type=R,count=255",     "type=R,noise=40,seed=3",
                              "type=R,stray=000052",  "type=M,size=5",
                              "type=r,letter=R",      "type=r,doubled",
                              "type=O,letter=X",      "type=O,bytes=0000",
                              "type=S,size=3",        "package,length=0",
                              "package,length=65535", "package,length=3",
                              "package,letter=X",     "package,size=5",
                              "package,stray=FFFF",   "package,inverted=0+1+2+3,times=3"}) {
        SCOPED_TRACE(fault);
        controller_->inject(sim::parse_fault(fault));
        if (fault[0] == 't') {
            const uint32_t before = status().connection;
            controller_->disconnect(sim::Port::io, sim::Break::reset);
            EXPECT_TRUE(wait_until([&] {
                return status().state == VEXO_SESSION_STATE_STREAMING &&
                       status().connection > before;
            }));
        }
        // Some way beyond it.
        const uint64_t packages = statistics().packages;
        EXPECT_TRUE(wait_until([&] { return statistics().packages > packages + 50; }));
        ASSERT_NO_FATAL_FAILURE(reader.read_up_to(status().connection));
        controller_->clear_faults();
    }
    EXPECT_GT(statistics().malformed, 0U);
}

// One that takes connections, but is silent, is not waited for longer than an attempt may take.
TEST_F(Session, AsksASilentControllerAgainAndAgain) {
    start_controller();
    open();
    ASSERT_NE(stream({"package_counter"}), nullptr);
    controller_->inject(sim::parse_fault("type=V,lost,times=3"));
    controller_->disconnect(sim::Port::io, sim::Break::reset);
    EXPECT_LT(event(VEXO_SESSION_EVENT_BACK).span_ns, 2'000'000'000);  // three limits would be 3 s
}

// The way back is a number of round trips: nothing is asked for twice, and nothing waited for.
TEST_F(Session, ComesBackInAsFewRequestsAsThereAre) {
    start_controller();
    auto patient = sized<VexoSessionOptions>();
    patient.attempt_us = kSoon;
    open(patient);
    ASSERT_NE(stream({"package_counter"}), nullptr);
    const char* names[] = {"heartbeat"};
    VexoSessionInputs* inputs = nullptr;
    ASSERT_OK(vexo_session_inputs_open(session_, names, 1, kSoon, &inputs));
    const VexoSessionStatus now = status();
    size_t pages = 0;
    for (const uint32_t entries : {now.outputs, now.inputs, now.methods}) {
        pages += entries / 200 + 1;
    }
    const size_t before = controller_->requests(sim::Port::io).size();
    const uint64_t attempts = statistics().attempts;
    controller_->disconnect(sim::Port::io, sim::Break::reset);
    event(VEXO_SESSION_EVENT_BACK);
    EXPECT_EQ(controller_->requests(sim::Port::io).size() - before,
              1 + 1 + pages + 3);  // both versions, and two recipes of which one is started
    EXPECT_EQ(statistics().attempts, attempts + 1);
}

}  // namespace
}  // namespace test
