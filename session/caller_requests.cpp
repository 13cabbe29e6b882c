#include "session/caller_requests.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include "session/error.h"

namespace vexo::session {

std::span<const uint8_t> CallerRequests::next(std::span<uint8_t> buffer) {
    const std::lock_guard lock(robot_.monitor);
    const Request* request = robot_.requests.front();
    if (request == nullptr) {
        return {};
    }
    const std::span<uint8_t> message = buffer.first(request->message.size());
    std::memcpy(message.data(), request->message.data(), message.size());
    robot_.requests.sent();
    return message;
}

void CallerRequests::answer(std::span<const uint8_t> reply, Nanoseconds round_trip) {
    const std::lock_guard lock(robot_.monitor);
    Request* request = robot_.requests.in_flight();
    if (request == nullptr) {
        robot_.statistics.late_replies.add();
        return;
    }
    const std::span<const uint8_t> payload =
        reply.subspan(std::min(reply.size(), wire::kReplyPayload));
    std::copy_n(payload.begin(), std::min(payload.size(), request->reply_room.size()),
                request->reply_room.begin());
    request->reply_bytes = payload.size();
    request->round_trip = round_trip;
    const bool accepted = wire::reply_status(reply) == 0;
    if (!accepted) {
        robot_.statistics.refused.add();
    }
    robot_.requests.finish(accepted ? VexoSessionError{} : refused(reply, "it"));
    robot_.monitor.tell_all();
}

bool CallerRequests::withdrawn() {
    const std::lock_guard lock(robot_.monitor);
    return robot_.requests.in_flight() == nullptr;
}

}  // namespace vexo::session
