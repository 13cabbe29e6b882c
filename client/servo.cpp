// The servo-joint command: one set-point per control cycle.
#include <cstdio>

#include "base/mutex_lock.h"
#include "base/racing_copy.h"
#include "client/exchange.h"
#include "client/vexo.h"
#include "wire/set_point.h"

pthread_mutex_t base_servoj_mutex = PTHREAD_MUTEX_INITIALIZER;

using namespace vexo;

namespace {

// Takes the next number of the handle. Protocol version 1 has a form of its own.
wire::MessageWriter build(Dataspace& dataspace, std::span<uint8_t> room, wire::SetPoint point) {
    dataspace.servo_counter = wire::next_sequence(dataspace.servo_counter);
    point.sequence = dataspace.servo_counter;
    return dataspace.version_word == 1 ? wire::set_point_with_values(room, point)
                                       : wire::set_point_with_array(room, point);
}

// The receive thread may be storing a late acknowledgement at this moment.
uint8_t acknowledged_status(const Dataspace& dataspace) {
    uint8_t head[wire::kStatusOffset + 1];
    racing_copy(head, dataspace.response, sizeof head);
    return wire::reply_status(head);
}

// A late or lost acknowledgement is no error: the next set-point is due, unless the handle is at
// its end.
int32_t examine(Caller caller, const Registration& handle, Transfer result) {
    if (result.sent < 0) {
        report(caller, "cvexo_servoj send error: %ld", result.sent);
        return VEXO_ERROR_TRANSPORT;
    }
    if (result.received.failed) {
        std::printf("cvexo_servoj recv error: %d\n", result.received.result);
        return handle.state().closing() ? VEXO_ERROR_TRANSPORT : 0;
    }
    return handle->nack != 0 ? 0 : examine_status(caller, acknowledged_status(*handle));
}

}  // namespace

int32_t cvexo_servoj(uint32_t handle, int32_t method_row, double value, uint8_t flag,
                     const double* vector, uint8_t count, const double* values) {
    const MutexLock lock(base_servoj_mutex);
    const Caller caller{handle, __func__};
    const Registration found = find_or_record_null(caller);
    if (!found) {
        return -1;
    }
    const std::span<uint8_t> room = begin_message(caller, *found, Purpose::set_point);
    if (room.empty()) {
        return VEXO_ERROR_TRANSPORT;
    }
    const uint16_t method = method_entry(*found, method_row).id;
    wire::MessageWriter message =
        build(*found, room, {method, value, 0, flag, vector, {values, count}});
    const long sent = send_message(*found, Purpose::set_point, message.finish());
    return examine(caller, found,
                   {sent, receive_acknowledgement({found, lock.hold(), &base_servoj_mutex})});
}
