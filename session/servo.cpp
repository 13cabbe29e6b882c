#include "session/servo.h"

#include "session/error.h"
#include "session/structure.h"
#include "wire/set_point.h"

namespace vexo::session {

size_t build_set_point(Robot& robot, const Live& live, const VexoSessionSetPoint& point) {
    const wire::SetPoint built{static_cast<uint16_t>(live.servo_method->id),
                               point.value,
                               robot.next_sequence(),
                               static_cast<uint8_t>(point.flag),
                               point.vector,
                               {point.joints, point.count}};
    const std::span<uint8_t> room = live.control->message_room();
    return live.connection->version == 1 ? wire::set_point_with_values(room, built).finish().size()
                                         : wire::set_point_with_array(room, built).finish().size();
}

VexoSessionError no_servo_method(const Robot& robot, const Live& live) {
    return live.catalogue->unknown(VEXO_SESSION_METHOD, robot.settings.servo_method);
}

namespace {

// So long set-points may go without one being acknowledged for certain, though answers come.
constexpr Nanoseconds kPatience = 100 * kMillisecond;
constexpr uint32_t kMostJoints = 255;

int32_t result_of(Robot& robot, Outcome outcome, const Answer& answer) {
    switch (outcome) {
        case Outcome::acknowledged:
            robot.statistics.acknowledged.add();
            if (answer.status != 0) {
                robot.statistics.refused.add();
                return tell(refusal(answer.status,
                                    "the controller refuses the set-point with the "
                                    "status %u",
                                    answer.status));
            }
            return VEXO_SESSION_OK;
        case Outcome::not_awaited:
            return VEXO_SESSION_OK;
        case Outcome::timed_out:
            robot.statistics.timed_out.add();
            return tell(VEXO_SESSION_TIMED_OUT, "the set-point was not acknowledged in time");
        case Outcome::no_room:
            return tell(VEXO_SESSION_SYSTEM, "the set-point could not be sent: there is no room");
        case Outcome::no_turn:
        case Outcome::broken:
            break;
    }
    return robot.closed.load() ? tell_closed() : tell(VEXO_SESSION_CUT, "the connection broke");
}

int32_t send(Robot& robot, const VexoSessionSetPoint& point, int64_t acknowledge_us) {
    const Nanoseconds deadline = deadline_after(acknowledge_us);
    const Ref<Live> live = robot.live();
    if (!live) {
        return tell(VEXO_SESSION_NOT_CONNECTED, "the session is not connected");
    }
    if (live->servo_method == nullptr) {
        return tell(no_servo_method(robot, *live));
    }
    ControlPort& control = *live->control;
    if (!control.take_turn(deadline)) {
        return tell(VEXO_SESSION_TIMED_OUT,
                    "another call on the control connection lasts; the "
                    "set-point was not sent");
    }
    const size_t size = build_set_point(robot, *live, point);
    ControlPort::Manner manner;
    manner.deadline = deadline;
    manner.wait = acknowledge_us > 0;
    manner.in_frame = static_cast<bool>(live->connection->raw);
    manner.patience = kPatience;
    Answer answer;
    const Outcome outcome = control.exchange(size, manner, answer);
    control.end_turn();
    if (outcome != Outcome::no_room && outcome != Outcome::broken) {
        robot.statistics.set_points.add();
    }
    return result_of(robot, outcome, answer);
}

}  // namespace

}  // namespace vexo::session

using namespace vexo::session;

extern "C" int32_t vexo_session_servo(VexoSession* session, const VexoSessionSetPoint* point,
                                      int64_t acknowledge_us) {
    const CallOn<Robot> robot(session, HandleKind::session);
    if (!robot) {
        return tell_closed();
    }
    VexoSessionSetPoint taken;
    if (point == nullptr || !take(taken, point) || taken.count > kMostJoints ||
        (taken.joints == nullptr && taken.count > 0)) {
        return tell(VEXO_SESSION_BAD_ARGUMENT,
                    "the set-point has no size, or no or too many joints");
    }
    if (robot->feeding.load()) {
        return tell(VEXO_SESSION_BUSY, "a feed sends the set-points of this session");
    }
    return send(*robot, taken, acknowledge_us);
}
