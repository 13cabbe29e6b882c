// Swings joint 1 there and back with set-points at 500 Hz, each acknowledged within a limit, and
// stops the robot at the end, on Ctrl-C as well. After a cut it begins anew from where the robot is
// then: the old path is of no use any more.
//
//   session_servo ADDRESS SECONDS
#include <array>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "session/session.hpp"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Joints = std::array<double, 6>;

constexpr auto kCycle = 2ms;

volatile std::sig_atomic_t interrupted = 0;

int fail() {
    const vexo::Error error;
    std::fprintf(stderr, "%s: %s\n%s\n", vexo_session_result_name(error.code), error.cause,
                 error.remedy);
    return 1;
}

// Manual begins
// Where the robot is. A new cursor begins with the next package: what came before a cut does not
// count.
bool present_position(const vexo::Stream& stream, Joints& joints) {
    auto cursor = stream.cursor();
    const auto field = stream.field("actual_joint_positions");
    vexo::Batch batch(stream, 1);
    return cursor && field && cursor->wait(5s) && cursor->read(batch) && !batch.empty() &&
           batch[0].f64(*field, joints).size() == joints.size();
}

// Sends set-points until the end, or until one fails; counts the acknowledged ones.
vexo::Status swing(vexo::Session& robot, const Joints& from, Clock::time_point end,
                   uint32_t& acknowledged) {
    Joints joints = from;
    const auto begin = Clock::now();
    for (auto next = begin; next < end && interrupted == 0; next += kCycle) {
        std::this_thread::sleep_until(next);
        const std::chrono::duration<double> passed = next - begin;
        joints[0] = from[0] + 0.1 * (1 - std::cos(2 * passed.count()));
        const vexo::Status sent = robot.servo(joints, 50ms);
        if (!sent && sent.code() != VEXO_SESSION_TIMED_OUT) {
            return sent;
        }
        acknowledged += sent ? 1 : 0;
    }
    return VEXO_SESSION_OK;
}

int run(vexo::Session& robot, Clock::time_point end) {
    auto stream = robot.stream({"actual_joint_positions"}, 5s);
    uint32_t acknowledged = 0;
    vexo::Status status = VEXO_SESSION_OK;
    do {
        Joints from{};
        if (!stream || !present_position(*stream, from)) {
            return fail();
        }
        status = swing(robot, from, end, acknowledged);
        std::printf("%u set-points acknowledged: %s\n", acknowledged,
                    vexo_session_result_name(status.code()));
    } while (status.code() == VEXO_SESSION_CUT || status.code() == VEXO_SESSION_NOT_CONNECTED);
    const bool stopped =
        status && robot.call("servoStop", {vexo::Argument::f64(1)}, 1s) && stream->close(1s);
    return stopped ? 0 : fail();
}
// Manual ends

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: session_servo ADDRESS SECONDS\n");
        return 2;
    }
    std::signal(SIGINT, [](int) { interrupted = 1; });
    const std::chrono::duration<double> span(std::atof(argv[2]));
    auto robot = vexo::Session::open(argv[1]);
    return robot ? run(*robot, Clock::now() + std::chrono::duration_cast<Clock::duration>(span))
                 : fail();
}
