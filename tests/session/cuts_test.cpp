// Cuts of every kind in every state, on both paths.
#include "tests/session/stream_reader.h"

namespace test {
namespace {

constexpr double kOldValue = 1;
constexpr double kNewValue = 2;

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

class Cuts : public SessionFixture,
             public ::testing::WithParamInterface<std::tuple<Path, State, Kind>> {
protected:
    void SetUp() override { prepare(std::get<Path>(GetParam())); }

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
    void close() {
        EXPECT_OK(vexo_session_close(session_));
        session_ = nullptr;
    }

    VexoSessionInputs* inputs_ = nullptr;
    VexoSessionFeed* feed_ = nullptr;
    std::optional<StreamReader> reader_;
};

TEST_P(Cuts, AreOvercome) {
    const auto& [path, state, kind] = GetParam();
    start_controller();
    const auto descriptors = open_descriptors();
    open(impatient());
    ASSERT_NO_FATAL_FAILURE(set_all_up(state));
    const uint32_t revision = status().catalogue_revision;
    cut(state, kind);
    ASSERT_NO_FATAL_FAILURE(wait_until_back());
    expect_only_new_things_sent();
    if (reader_) {
        reader_->read_up_to(status().connection);
    }
    EXPECT_EQ(status().catalogue_revision > revision, kind.other_catalogue);
    close();
    EXPECT_TRUE(wait_until([&] {
        const auto now = open_descriptors();
        return now.size() <= descriptors.size();  // the controller's own end a moment later
    }));
}

std::string name_of(const ::testing::TestParamInfo<Cuts::ParamType>& each) {
    const auto& [path, state, kind] = each.param;
    return std::string(path.name) + state.name + kind.name;
}

INSTANTIATE_TEST_SUITE_P(Every, Cuts,
                         ::testing::Combine(::testing::ValuesIn(kPaths),
                                            ::testing::ValuesIn(kStates),
                                            ::testing::ValuesIn(kKinds)),
                         name_of);

}  // namespace
}  // namespace test
