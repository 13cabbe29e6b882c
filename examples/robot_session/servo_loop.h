// A control loop at 1 kHz: each cycle sends a set-point, and every tenth an input package, while
// another thread looks at the output packages.
#ifndef EXAMPLES_ROBOT_SESSION_SERVO_LOOP_H
#define EXAMPLES_ROBOT_SESSION_SERVO_LOOP_H

#include <atomic>
#include <chrono>
#include <vector>

#include "robot.h"

struct ServoReport {
    int on_time = 0;  // cycles that ended before the next was due
    int late = 0;
    std::vector<double> round_trips;  // microseconds, sorted
    uint32_t packages_seen = 0;
    uint32_t packages_sent = 0;  // by the controller meanwhile
    double largest_error = 0;    // rad, between set-point and position at the end
};

// Swings the last joint for `duration` and comes back to where it was. Throws when a set-point or
// an input package cannot be sent.
ServoReport run_servo_loop(const Robot& robot, std::chrono::seconds duration);

#endif
