// Set-points in the form of the negotiated version.
#ifndef SESSION_SERVO_H
#define SESSION_SERVO_H

#include "session/robot.h"

namespace vexo::session {

// Builds a set-point in the control port's room, the turn being had. Returns its size.
size_t build_set_point(Robot& robot, const Live& live, const VexoSessionSetPoint& point);

// The session has no such method.
VexoSessionError no_servo_method(const Robot& robot, const Live& live);

}  // namespace vexo::session

#endif
