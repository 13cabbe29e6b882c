// What the I/O thread asks the controller for callers.
#ifndef SESSION_CALLER_REQUESTS_H
#define SESSION_CALLER_REQUESTS_H

#include "session/robot.h"

namespace vexo::session {

class CallerRequests {
public:
    explicit CallerRequests(Robot& robot) : robot_(robot) {}

    // The next request, copied into `buffer`: its caller may leave at any time. Empty: none.
    std::span<const uint8_t> next(std::span<uint8_t> buffer);
    // The reply to the one that was sent.
    void answer(std::span<const uint8_t> reply, Nanoseconds round_trip);
    // Whether the caller of the one that was sent has left, because its limit has passed.
    bool withdrawn();

private:
    Robot& robot_;
};

}  // namespace vexo::session

#endif
