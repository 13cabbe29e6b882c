// `vexo servo-test`: set-points that keep the robot where it is, and how long they take.
#include <array>
#include <cmath>

#include "tools/vexo/interrupt.h"
#include "tools/vexo/measurement.h"
#include "tools/vexo/values.h"

namespace tool {
namespace {

constexpr size_t kJoints = 6;
constexpr const char* kPosition = "actual_joint_positions";
constexpr const char* kStop = "servoStop";
constexpr double kStill = 0.001;       // rad; a robot that is still keeps within it
constexpr double kAstray = 0.02;       // rad; the test ends when a joint is that far off
constexpr int64_t kReplyUs = 100'000;  // for an acknowledgement, and to stop

using Joints = std::array<double, kJoints>;

struct Arguments {
    double seconds = 5;
    bool nack = false;
    bool yes = false;
};

Joints position_in(const LiveSource& source, const Row& row) {
    Joints joints{};
    vexo_session_get_f64(&source.fields()[0], row.package, joints.data(), kJoints);
    return joints;
}

double distance(const Joints& left, const Joints& right) {
    double most = 0;
    for (size_t i = 0; i < kJoints; ++i) {
        most = std::max(most, std::abs(left[i] - right[i]));
    }
    return most;
}

Failure interrupted_early() {
    return Failure(Exit::unreachable, "interrupted", "Interrupted before the first set-point", "");
}

// Where the robot is, once it has been seen to keep still for a tenth of a second.
Joints resting_position(LiveSource& source) {
    constexpr int64_t kWatchedNs = 100'000'000;
    std::optional<Row> row = source.next(TimePoint::max());
    if (!row) {
        throw interrupted_early();
    }
    const Joints first = position_in(source, *row);
    const int64_t begin_ns = row->package->arrival_ns;
    while (row && row->package->arrival_ns - begin_ns < kWatchedNs) {
        if (distance(position_in(source, *row), first) > kStill) {
            throw Failure(Exit::failed, "moving", "The robot moves: no set-point was sent",
                          "stop what moves it, then try again");
        }
        row = source.next(TimePoint::max());
    }
    if (!row) {
        throw interrupted_early();
    }
    return position_in(source, *row);
}

// Ends servo motion whichever way the test ends.
class Stop {
public:
    explicit Stop(VexoSession* session) : session_(session) {}
    ~Stop() {
        const double value = 1;
        const VexoSessionArgument argument{VEXO_TYPE_F64, 0, 0, 0, &value};
        vexo_session_call(session_, kStop, &argument, 1, VEXO_SESSION_PORT_BY_NAME, nullptr,
                          nullptr, kReplyUs);
    }
    Stop(const Stop&) = delete;
    Stop& operator=(const Stop&) = delete;

private:
    VexoSession* session_;
};

class Test {
public:
    Test(LiveSource& source, const Joints& position, const Arguments& arguments)
        : source_(source), position_(position), arguments_(arguments) {
        point_.count = kJoints;
        point_.joints = position_.data();
    }

    // One set-point for each package, until the time is over or something is wrong.
    void run(Output& output) {
        using std::chrono::steady_clock;
        const Stop stop(source_.session());
        const TimePoint end =
            steady_clock::now() +
            std::chrono::nanoseconds(static_cast<int64_t>(arguments_.seconds * 1e9));
        while (const std::optional<Row> row = source_.next(end)) {
            measurement_.add(*row);
            if (const double off = distance(position_in(source_, *row), position_); off > kAstray) {
                measurement_.add_cause("a joint was " + std::to_string(off) +
                                       " rad off: the test was ended");
                break;
            }
            if (!send()) {
                break;
            }
            output.progress(measurement_.progress());
        }
    }

    Measurement& result() {
        if (unacknowledged_ > 0) {
            measurement_.add_cause(std::to_string(unacknowledged_) + " of " +
                                   std::to_string(sent_) + " set-points were not acknowledged");
        }
        return measurement_;
    }

private:
    // Returns whether there is a connection for more.
    bool send() {
        using std::chrono::steady_clock;
        const TimePoint begin = steady_clock::now();
        const int32_t result =
            vexo_session_servo(source_.session(), &point_, arguments_.nack ? 0 : kReplyUs);
        ++sent_;
        if (result == VEXO_SESSION_TIMED_OUT) {
            ++unacknowledged_;
            return true;
        }
        if (result == VEXO_SESSION_CUT || result == VEXO_SESSION_NOT_CONNECTED) {
            measurement_.add_cause("the connection broke after " + counted(sent_, "set-point") +
                                   ": see that nobody else connects to the controller");
            return false;
        }
        checked(result);
        if (!arguments_.nack) {
            const std::chrono::duration<double, std::micro> span = steady_clock::now() - begin;
            measurement_.add_round_trip(span.count());
        }
        return true;
    }

    LiveSource& source_;
    Joints position_;
    const Arguments& arguments_;
    VexoSessionSetPoint point_ = sized<VexoSessionSetPoint>();
    Measurement measurement_;
    uint64_t sent_ = 0;
    uint64_t unacknowledged_ = 0;
};

void refuse_without_yes(const Arguments& arguments) {
    if (!arguments.yes) {
        throw Failure(Exit::usage, "needs_yes",
                      "servo-test takes control of the robot, to keep it where it is",
                      "see that nobody is near it, and say --yes");
    }
}

Exit run(const Arguments& arguments, Context& context) {
    refuse_without_yes(arguments);
    run_as_caller();
    Session session = open_session(context, !arguments.nack);
    require_names(session.get(), VEXO_SESSION_METHOD, {kStop});
    LiveSource source(context, std::move(session), {kPosition}, LiveSource::Purpose::measure);
    if (source.fields()[0].elements != kJoints) {
        throw Failure(Exit::failed, "wrong_type",
                      std::string(kPosition) + " are not the angles of six joints",
                      "this test is for arms with six joints");
    }
    Test test(source, resting_position(source), arguments);
    test.run(context.output);
    Measurement& measurement = test.result();
    measurement.judge(source.session(), 0);
    return measurement.report(context.output);
}

}  // namespace

void add_servo_test(Command& app, Context& context) {
    Command* command =
        app.add_subcommand("servo-test", "Measure set-points that keep the robot where it is");
    const auto arguments = std::make_shared<Arguments>();
    command->add_option("-D,--duration", arguments->seconds, "send them for so many seconds")
        ->type_name("S")
        ->between(0.001, 3600.0)
        ->capture_default_str();
    command->add_flag("--nack", arguments->nack, "without acknowledgements");
    command->add_flag("--yes", arguments->yes, "nobody is near the robot");
    command->callback([&context, arguments] {
        context.run = [&, arguments] { return run(*arguments, context); };
    });
}

}  // namespace tool
