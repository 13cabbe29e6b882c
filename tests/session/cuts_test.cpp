// Cuts of every kind in every state, and at every byte of what a controller sends.
#include <sys/socket.h>

#include <thread>

#include "tests/session/session_fixture.h"

namespace test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr auto kClosesWithin = milliseconds(500);  // ten times the promise, for a loaded machine
constexpr double kOldValue = 1;
constexpr double kNewValue = 2;

// Limits so short that a silent controller does not hold up the tests.
VexoSessionOptions impatient() {
    auto options = sized<VexoSessionOptions>();
    options.reply_limit_us = 300'000;
    options.stream_limit_us = 300'000;
    options.idle_us = 100'000;
    return options;
}

VexoSessionSetPoint set_point(double value) {
    static const double joints[6] = {};
    auto point = sized<VexoSessionSetPoint>();
    point.count = 6;
    point.joints = joints;
    point.value = value;
    return point;
}

void expect_explained(const VexoSessionError& error) {
    EXPECT_LT(error.code, 0);
    EXPECT_STRNE(error.cause, "");
    EXPECT_STRNE(error.remedy, "");
}

// Reads a stream of `package_counter` and sees to it that what it reads is in order.
class Reader {
public:
    explicit Reader(VexoSessionStream* stream) : records_(stream) {
        EXPECT_OK(vexo_session_cursor_open(stream, nullptr, &cursor_));
        field_.size = sizeof field_;
        EXPECT_OK(vexo_session_stream_find(stream, "package_counter", &field_));
    }

    // Reads on until a package of this connection, or a later one, has come.
    void read_up_to(uint32_t connection) {
        do {
            ASSERT_OK(vexo_session_cursor_wait(cursor_, kSoon));
            const size_t count = records_.read(cursor_, 256);
            number_ += records_.lost;
            for (size_t i = 0; i < count; ++i) {
                take(i);
            }
        } while (last_.connection < connection && !::testing::Test::HasFailure());
    }

private:
    void take(size_t index) {
        const VexoSessionPackage package = records_.package(index);
        int64_t counter = 0;
        EXPECT_EQ(vexo_session_get_i64(&field_, records_.record(index), &counter, 1), 1);
        number_ = number_ == 0 ? package.number : number_ + 1;
        EXPECT_EQ(package.number, number_);
        EXPECT_GE(package.connection, last_.connection);
        EXPECT_GE(package.arrival_ns, last_.arrival_ns);
        if (package.connection == last_.connection) {
            EXPECT_GT(counter, counter_) << "an old package, or none at all";
        }
        last_ = package;
        counter_ = counter;
    }

    Records records_;
    VexoSessionCursor* cursor_ = nullptr;
    VexoSessionVariable field_{};
    VexoSessionPackage last_{};
    uint64_t number_ = 0;
    int64_t counter_ = 0;
};

struct State {
    const char* name;
    const char* trigger;  // the reply that is lost while the break happens; none: at once
    bool on_the_way;      // the session has to come by this state, so it is cut before
    bool streams;
};
void PrintTo(const State& state, std::ostream* out) {
    *out << state.name;
}
constexpr State kStates[] = {
    {"Connecting", "", true, true},
    {"Negotiating", "type=V,lost,", true, true},
    {"ReadingVersion", "type=v,lost,", true, true},
    {"ReadingOutputs", "type=R,lost,", true, true},
    {"ReadingMethods", "type=M,lost,", true, true},
    {"SettingUpOutputs", "type=O,lost,", true, true},
    {"SettingUpInputs", "type=I,lost,", true, true},
    {"Starting", "type=S,lost,", true, true},
    {"Ready", "", false, false},
    {"Streaming", "", false, true},
};

struct Kind {
    const char* name;
    const char* fault;
    const char* connecting;  // the same when there is no connection yet
    bool other_catalogue;
};
void PrintTo(const Kind& kind, std::ostream* out) {
    *out << kind.name;
}
constexpr Kind kKinds[] = {
    {"Reset", "disconnect,reset", "refuse=150", false},
    {"Closed", "disconnect,close", "refuse=150,port=control", false},
    {"Silent", "silence=700", "silence=700", false},
    {"HalfOpen", "half-open=700", "half-open=700", false},
    {"RebootedWithAnotherCatalogue", "reboot=100,renumbered,reordered",
     "reboot=100,renumbered,reordered", true},
    {"AddressTaken", "taken", "taken", true},
};

class Cuts : public SessionFixture, public ::testing::WithParamInterface<std::tuple<State, Kind>> {
protected:
    // A stream, inputs, and set-points on their way.
    void set_all_up(const State& state) {
        if (state.streams) {
            VexoSessionStream* opened = stream({"package_counter"});
            ASSERT_NE(opened, nullptr);
            reader_.emplace(opened);
        }
        const char* names[] = {"heartbeat"};
        ASSERT_OK(vexo_session_inputs_open(session_, names, 1, kSoon, &inputs_));
        ASSERT_OK(vexo_session_inputs_set_f64(inputs_, "heartbeat", &kOldValue, 1));
        ASSERT_OK(vexo_session_wait(session_, VEXO_SESSION_STATE_READY, kSoon));
        auto options = sized<VexoSessionFeedOptions>();
        options.joints = 6;
        options.value = kOldValue;
        ASSERT_OK(vexo_session_feed_open(session_, &options, &feed_));
        const std::vector<double> points(size_t{4000} * 6);
        ASSERT_OK(vexo_session_feed_push(feed_, points.data(), 4000, kSoon, nullptr));
        ASSERT_TRUE(controller_->wait_for_set_points(5));
    }
    void cut(const State& state, const Kind& kind) {
        const bool connecting = std::string(state.name) == "Connecting";
        controller_->inject(sim::parse_fault(std::string(state.trigger) +
                                             (connecting ? kind.connecting : kind.fault)));
        if (state.on_the_way) {
            controller_->disconnect(sim::Port::io, sim::Break::reset);
        }
    }
    // Until it is ready again; whatever is told on the way has to make sense.
    void wait_until_back() {
        auto next = sized<VexoSessionEvent>();
        do {
            ASSERT_OK(vexo_session_next_event(session_, &position_, &next, kSoon));
            if (next.kind == VEXO_SESSION_EVENT_CUT || next.kind == VEXO_SESSION_EVENT_ERROR) {
                expect_explained(next.error);
            }
        } while (next.kind != VEXO_SESSION_EVENT_BACK);
    }
    // What was given before the cut is gone; what is given now arrives.
    void expect_only_new_things_sent() {
        EXPECT_NE(vexo_session_inputs_send(inputs_), VEXO_SESSION_OK);
        const double points[6] = {};
        EXPECT_EQ(vexo_session_feed_push(feed_, points, 1, kSoon, nullptr), VEXO_SESSION_CUT);
        EXPECT_OK(vexo_session_feed_close(feed_));
        const VexoSessionSetPoint point = set_point(kNewValue);
        for (int i = 0; i < 20; ++i) {
            EXPECT_TRUE(wait_until([&] {
                return vexo_session_inputs_set_f64(inputs_, "heartbeat", &kNewValue, 1) == 0 &&
                       vexo_session_inputs_send(inputs_) == VEXO_SESSION_OK &&
                       vexo_session_servo(session_, &point, kSoon) == VEXO_SESSION_OK;
            }));
        }
        bool newer = false;
        for (const sim::SetPoint& each : controller_->set_points()) {
            newer = newer || each.value == kNewValue;
            EXPECT_TRUE(!newer || each.value == kNewValue) << "from before the cut";
        }
        EXPECT_TRUE(newer);
        EXPECT_TRUE(wait_until([this] { return !controller_->inputs().empty(); }));
        for (const sim::Input& each : controller_->inputs()) {
            EXPECT_EQ(each.values[0], kNewValue);
        }
    }
    void expect_prompt_close() {
        const auto begin = steady_clock::now();
        EXPECT_OK(vexo_session_close(session_));
        EXPECT_LT(steady_clock::now() - begin, kClosesWithin);
        session_ = nullptr;
    }

    VexoSessionInputs* inputs_ = nullptr;
    VexoSessionFeed* feed_ = nullptr;
    std::optional<Reader> reader_;
};

TEST_P(Cuts, AreOvercome) {
    const auto& [state, kind] = GetParam();
    start_controller();
    const auto descriptors = open_descriptors();
    const VexoSessionOptions options = impatient();
    open(&options);
    ASSERT_NO_FATAL_FAILURE(set_all_up(state));
    const uint32_t revision = status().catalogue_revision;
    cut(state, kind);
    ASSERT_NO_FATAL_FAILURE(wait_until_back());
    expect_only_new_things_sent();
    if (reader_) {
        reader_->read_up_to(status().connection);
    }
    EXPECT_EQ(status().catalogue_revision > revision, kind.other_catalogue);
    expect_prompt_close();
    EXPECT_TRUE(wait_until([&] {
        const auto now = open_descriptors();
        return now.size() <= descriptors.size();  // the controller's own end a moment later
    }));
}

INSTANTIATE_TEST_SUITE_P(
    Every, Cuts, ::testing::Combine(::testing::ValuesIn(kStates), ::testing::ValuesIn(kKinds)),
    [](const auto& each) {
        return std::string(std::get<0>(each.param).name) + std::get<1>(each.param).name;
    });

// A small catalogue makes a set-up of few bytes.
sim::Catalogue small() {
    sim::Catalogue catalogue;
    catalogue.outputs = {{"package_counter", 3, sim::Type::u32}, {"pressure", 4, sim::Type::u16}};
    catalogue.inputs = {{"heartbeat", 1, sim::Type::u8}};
    catalogue.methods = {{"servoJ", 9}};
    return catalogue;
}

// A controller and its session, which is cut at one byte after the other.
class CutAtBytes {
public:
    CutAtBytes(int number, sim::Break how) : how_(how), controller_(options(number)) {
        const VexoSessionOptions impatience = impatient();
        EXPECT_OK(vexo_session_open(own_loopback(number).c_str(), &impatience, &session_));
        const char* names[] = {"package_counter", "pressure"};
        EXPECT_OK(vexo_session_stream_open(session_, names, 2, nullptr, kSoon, &stream_));
        const char* inputs[] = {"heartbeat"};
        EXPECT_OK(vexo_session_inputs_open(session_, inputs, 1, kSoon, &inputs_));
        reader_.emplace(stream_);
    }
    ~CutAtBytes() { EXPECT_OK(vexo_session_close(session_)); }

    // Of the set-up: counted over all of its replies. Tells whether there was such a byte.
    bool cut_set_up(size_t byte) {
        sim::Fault fault;
        fault.link = how_;
        fault.link_total = byte;
        const uint64_t attempts = statistics().attempts;
        controller_.inject(fault);
        controller_.disconnect(sim::Port::io, how_);
        come_back();
        controller_.clear_faults();
        return statistics().attempts > attempts + 1;
    }
    // Of a package.
    void cut_package(size_t byte) {
        sim::Fault fault;
        fault.target = sim::Target::package;
        fault.link = how_;
        fault.link_after = byte;
        controller_.inject(fault);
        come_back();
    }

private:
    static sim::Options options(int number) {
        sim::Options options;
        options.address = own_loopback(number);
        options.catalogue = small();
        return options;
    }
    VexoSessionStatistics statistics() {
        auto now = sized<VexoSessionStatistics>();
        EXPECT_OK(vexo_session_statistics(session_, &now));
        return now;
    }
    void come_back() {
        auto next = sized<VexoSessionEvent>();
        do {
            ASSERT_OK(vexo_session_next_event(session_, &position_, &next, kSoon));
        } while (next.kind != VEXO_SESSION_EVENT_BACK);
        reader_->read_up_to(++connections_);
    }

    sim::Break how_;
    sim::Simulator controller_;
    VexoSession* session_ = nullptr;
    VexoSessionStream* stream_ = nullptr;
    VexoSessionInputs* inputs_ = nullptr;
    std::optional<Reader> reader_;
    uint64_t position_ = 0;
    uint32_t connections_ = 1;
};

// Eight controllers in one process, each cut at every eighth byte.
TEST(CutsAtEveryByte, AreOvercome) {
    constexpr size_t kPackage = 4 + 4 + 2;
    constexpr int kControllers = 8;
    std::array<size_t, kControllers> last{};
    std::vector<std::thread> threads;
    for (int i = 0; i < kControllers; ++i) {
        threads.emplace_back([i, &last] {
            CutAtBytes cuts(i + 1, i % 2 == 0 ? sim::Break::reset : sim::Break::close);
            size_t& byte = last[static_cast<size_t>(i)];
            for (byte = static_cast<size_t>(i);
                 cuts.cut_set_up(byte) && !::testing::Test::HasFailure(); byte += kControllers) {
            }
            for (size_t each = 0; each < kPackage && !::testing::Test::HasFailure(); ++each) {
                cuts.cut_package(each);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_GT(*std::ranges::min_element(last), 100U) << "bytes of the set-up that were seen";
}

// Where a session may be when it is closed, with a caller inside.
struct Held {
    const char* name;
    const char* fault;  // that keeps it there; null: no controller
    char request;       // which is not answered; 0: none
    uint32_t state;
};
void PrintTo(const Held& held, std::ostream* out) {
    *out << held.name;
}

class Closing : public SessionFixture, public ::testing::WithParamInterface<Held> {};

TEST_P(Closing, IsPromptInEveryState) {
    const Held& held = GetParam();
    if (held.fault != nullptr) {
        start_controller();
        controller_->inject(sim::parse_fault(held.fault));
    }
    open();
    std::thread inside([this] {
        const char* names[] = {"package_counter"};
        VexoSessionStream* opened = nullptr;
        int32_t result = vexo_session_stream_open(session_, names, 1, nullptr, kSoon, &opened);
        auto next = sized<VexoSessionEvent>();
        for (uint64_t position = 0; result == VEXO_SESSION_OK;) {
            result = vexo_session_next_event(session_, &position, &next, kSoon);
        }
        EXPECT_EQ(result, VEXO_SESSION_CLOSED);
    });
    EXPECT_TRUE(held.request != 0 ? controller_->wait_for_requests(held.request, 1)
                                  : wait_until([&] { return status().state == held.state; }));
    const auto begin = steady_clock::now();
    EXPECT_OK(vexo_session_close(session_));
    EXPECT_LT(steady_clock::now() - begin, kClosesWithin);
    inside.join();
    session_ = nullptr;
}

INSTANTIATE_TEST_SUITE_P(Every, Closing,
                         ::testing::Values(Held{"Waiting", nullptr, 0, VEXO_SESSION_STATE_WAITING},
                                           Held{"Negotiating", "type=V,lost", 'V', 0},
                                           Held{"ReadingCatalogue", "type=R,lost", 'R', 0},
                                           Held{"SettingUp", "type=O,lost", 'O', 0},
                                           Held{"Starting", "type=S,lost", 'S', 0},
                                           Held{"Streaming", "package,lost", 0,
                                                VEXO_SESSION_STATE_STREAMING}),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_F(SessionFixture, ASlowReaderLosesWithACountAndHoldsUpNobody) {
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

}  // namespace
}  // namespace test
