#include "sim/arm.h"

#include <algorithm>
#include <cmath>

namespace sim {

namespace {

constexpr double kTimeConstant = 0.015;                           // s
constexpr Joints kVelocityLimit{3.0, 3.0, 3.5, 5.0, 5.0, 6.0};    // rad/s
constexpr Joints kGravityTorque{0.0, 95.0, 42.0, 6.0, 3.0, 0.2};  // Nm with the link level
constexpr Joints kFriction{12.0, 14.0, 9.0, 3.0, 2.5, 1.5};       // Nm s/rad

// Denavit-Hartenberg parameters of the links.
struct Link {
    double length;  // m
    double twist;   // rad
    double offset;  // m
};
constexpr double kQuarter = 1.5707963267948966;
constexpr std::array<Link, 6> kLinks{{{0.0, kQuarter, 0.155},
                                      {-0.470, 0.0, 0.0},
                                      {-0.410, 0.0, 0.0},
                                      {0.0, kQuarter, 0.125},
                                      {0.0, -kQuarter, 0.105},
                                      {0.0, 0.0, 0.095}}};

struct Frame {
    double rotation[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    double origin[3] = {0, 0, 0};
};

Frame behind(const Frame& base, const Link& link, double angle) {
    const double ca = std::cos(angle);
    const double sa = std::sin(angle);
    const double ct = std::cos(link.twist);
    const double st = std::sin(link.twist);
    const double step[3][4] = {{ca, -sa * ct, sa * st, link.length * ca},
                               {sa, ca * ct, -ca * st, link.length * sa},
                               {0, st, ct, link.offset}};
    Frame result = base;
    for (int row = 0; row < 3; ++row) {
        const double* r = base.rotation[row];
        for (int column = 0; column < 3; ++column) {
            result.rotation[row][column] =
                r[0] * step[0][column] + r[1] * step[1][column] + r[2] * step[2][column];
        }
        result.origin[row] += r[0] * step[0][3] + r[1] * step[1][3] + r[2] * step[2][3];
    }
    return result;
}

}  // namespace

void Arm::advance(double seconds) {
    const double share = 1 - std::exp(-seconds / kTimeConstant);
    for (size_t joint = 0; joint < position.size(); ++joint) {
        const double most = kVelocityLimit[joint] * speed_percent / 100 * seconds;
        const double step = std::clamp((target[joint] - position[joint]) * share, -most, most);
        position[joint] += step;
        velocity[joint] = step / seconds;
    }
    time += seconds;
    ++cycles;
}

void Arm::follow(const Joints& joints) {
    target = joints;
    servo_active = true;
}

void Arm::halt() {
    target = position;
    servo_active = false;
}

void Arm::raise_error(uint32_t code) {
    error_code = code;
    ++error_count;
    halt();
}

double Arm::target_velocity(size_t joint) const {
    const double limit = kVelocityLimit[joint] * speed_percent / 100;
    return std::clamp((target[joint] - position[joint]) / kTimeConstant, -limit, limit);
}

double Arm::torque(size_t joint) const {
    return kGravityTorque[joint] * std::cos(position[joint]) + kFriction[joint] * velocity[joint];
}

bool Arm::moving() const {
    return std::any_of(velocity.begin(), velocity.end(),
                       [](double speed) { return std::abs(speed) > 1e-4; });
}

Pose flange_pose(const Joints& joints) {
    Frame frame;
    for (size_t joint = 0; joint < joints.size(); ++joint) {
        frame = behind(frame, kLinks[joint], joints[joint]);
    }
    const auto& r = frame.rotation;
    return {frame.origin[0],
            frame.origin[1],
            frame.origin[2],
            std::atan2(r[2][1], r[2][2]),
            std::atan2(-r[2][0], std::hypot(r[2][1], r[2][2])),
            std::atan2(r[1][0], r[0][0])};
}

}  // namespace sim
