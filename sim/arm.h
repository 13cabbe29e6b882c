// The simulated arm: joints that follow their targets, inputs and outputs, modes and errors.
#ifndef SIM_ARM_H
#define SIM_ARM_H

#include <cstdint>
#include <string>

#include "sim/types.h"

namespace sim {

using Pose = std::array<double, 6>;  // x, y, z in m; roll, pitch, yaw in rad

// A bank of digital inputs, and of as many outputs, within the 64-bit word.
struct DigitalBank {
    const char* name;
    unsigned first_bit;
    unsigned count;
};
inline constexpr DigitalBank kStandardBank{"standard", 0, 16};
inline constexpr DigitalBank kConfigurableBank{"configurable", 16, 8};
inline constexpr DigitalBank kToolBank{"tool", 24, 4};

struct Arm {
    Joints position{0.0, -1.2, 1.6, -0.4, 1.5, 0.0};  // rad
    Joints velocity{};                                // rad/s
    Joints target = position;                         // rad
    double speed_percent = 100;                       // scales the velocity limit

    uint64_t digital_inputs = 0;
    uint64_t digital_outputs = 0;
    uint32_t error_code = 0;
    uint32_t error_count = 0;
    bool servo_active = false;
    bool inertia_compensation = false;
    bool torque_compensation = false;
    bool sensor_force = false;
    bool log_output = false;

    double time = 0;        // s since the start
    double ahead = 0;       // s that the controller shows more
    uint64_t cycles = 0;    // advances since the start
    uint32_t package = 0;   // number of the package that is being sent, 1 after each start
    uint32_t sequence = 0;  // of the latest set-point
    uint32_t set_points = 0;
    uint32_t inputs = 0;

    // Lets time pass: each joint nears its target with a first-order lag, within its velocity
    // limit.
    void advance(double seconds);
    void follow(const Joints& joints);
    void halt();
    void raise_error(uint32_t code);

    // rad/s that the drive of a joint strives for.
    double target_velocity(size_t joint) const;
    // Nm, from a plain model of gravity and friction.
    double torque(size_t joint) const;
    bool moving() const;
};

// Where the tool flange is at these joint positions.
Pose flange_pose(const Joints& joints);

}  // namespace sim

#endif
