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
#include <cstring>
#include <memory>
#include <thread>

#include "session/session.h"

namespace {

using Clock = std::chrono::steady_clock;
using Joints = std::array<double, 6>;

constexpr int64_t kSecond = 1'000'000;  // limits are in microseconds
constexpr int64_t kAcknowledged = 50'000;
constexpr auto kCycle = std::chrono::milliseconds(2);

volatile std::sig_atomic_t interrupted = 0;

struct Close {
    void operator()(VexoSession* robot) const { vexo_session_close(robot); }
};
using Robot = std::unique_ptr<VexoSession, Close>;

int fail() {
    VexoSessionError error{};
    error.size = sizeof error;
    vexo_session_error(&error);
    std::fprintf(stderr, "%s: %s\n%s\n", vexo_session_result_name(error.code), error.cause,
                 error.remedy);
    return 1;
}

// Manual begins
// The joints as the connection that holds now has shown them. What came before a cut does not count.
bool present_position(VexoSession* robot, VexoSessionStream* stream, Joints& joints) {
    VexoSessionStatus status{};
    status.size = sizeof status;
    VexoSessionVariable field{};
    field.size = sizeof field;
    std::array<uint64_t, 64> record{};  // whole words, as a record begins with them
    VexoSessionPackage package{};
    const auto limit = Clock::now() + std::chrono::seconds(5);
    do {
        if (vexo_session_wait(robot, VEXO_SESSION_STATE_STREAMING, 5 * kSecond) != 0 ||
            Clock::now() > limit) {
            return false;
        }
        std::this_thread::sleep_for(kCycle);
        vexo_session_status(robot, &status);
        if (vexo_session_stream_latest(stream, record.data(), sizeof record, nullptr) == 0) {
            std::memcpy(&package, record.data(), sizeof package);
        }
    } while (package.connection != status.connection);
    return vexo_session_stream_field(stream, 0, &field) == 0 &&
           vexo_session_get_f64(&field, record.data(), joints.data(), 6) == 6;
}

// Sends set-points for so many seconds, or until one fails; tells how many were acknowledged.
int32_t swing(VexoSession* robot, const Joints& from, Clock::time_point end, uint32_t& done) {
    Joints joints = from;
    VexoSessionSetPoint point{};
    point.size = sizeof point;
    point.count = static_cast<uint32_t>(joints.size());
    point.joints = joints.data();
    const auto begin = Clock::now();
    for (auto next = begin; next < end && interrupted == 0; next += kCycle) {
        std::this_thread::sleep_until(next);
        const std::chrono::duration<double> passed = next - begin;
        joints[0] = from[0] + 0.1 * (1 - std::cos(2 * passed.count()));
        const int32_t result = vexo_session_servo(robot, &point, kAcknowledged);
        if (result != VEXO_SESSION_OK && result != VEXO_SESSION_TIMED_OUT) {
            return result;
        }
        done += result == VEXO_SESSION_OK ? 1 : 0;
    }
    return VEXO_SESSION_OK;
}
// Manual ends

bool came_from_a_cut(int32_t result) {
    return result == VEXO_SESSION_CUT || result == VEXO_SESSION_NOT_CONNECTED;
}

int run(VexoSession* robot, double seconds) {
    const char* const names[] = {"actual_joint_positions"};
    VexoSessionStream* stream = nullptr;
    if (vexo_session_stream_open(robot, names, 1, nullptr, 5 * kSecond, &stream) != 0) {
        return fail();
    }
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                        std::chrono::duration<double>(seconds));
    uint32_t acknowledged = 0;
    int32_t result = VEXO_SESSION_OK;
    do {
        Joints from{};
        if (!present_position(robot, stream, from)) {
            return fail();
        }
        result = swing(robot, from, end, acknowledged);
        std::printf("%u set-points acknowledged, %s\n", acknowledged,
                    vexo_session_result_name(result));
    } while (came_from_a_cut(result));
    const double deceleration = 1;
    const VexoSessionArgument argument{VEXO_TYPE_F64, 0, 0, 0, &deceleration};
    if (result != VEXO_SESSION_OK ||
        vexo_session_call(robot, "servoStop", &argument, 1, VEXO_SESSION_PORT_BY_NAME, nullptr,
                          nullptr, kSecond) != 0 ||
        vexo_session_stream_close(stream, kSecond) != 0) {
        return fail();
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: session_servo ADDRESS SECONDS\n");
        return 2;
    }
    std::signal(SIGINT, [](int) { interrupted = 1; });
    VexoSession* opened = nullptr;
    if (vexo_session_open(argv[1], nullptr, &opened) != 0) {
        return fail();
    }
    const Robot robot(opened);
    return run(robot.get(), std::atof(argv[2]));
}
