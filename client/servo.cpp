// The servo-joint command: one set-point per control cycle.
#include <cstdio>

#include "base/mutex_lock.h"
#include "base/racing_copy.h"
#include "base/retry.h"
#include "client/cancellable_wait.h"
#include "client/exchange.h"
#include "client/method_call.h"
#include "client/registry.h"
#include "client/request_buffer.h"
#include "client/vexo.h"
#include "net/exchange_socket.h"
#include "net/raw_socket.h"

pthread_mutex_t base_servoj_mutex = PTHREAD_MUTEX_INITIALIZER;

using namespace vexo;

namespace {

constexpr uint8_t kServoFrame = 146;
constexpr int kReplyMicroseconds = 5000;
constexpr uint32_t kLastSequence = 100000;
constexpr int kVectorLength = 6;

struct SetPoint {
    int32_t method_row;
    double value;
    uint8_t flag;
    const double* vector;  // null: left out
    uint8_t count;
    const double* values;
};

uint32_t next_sequence(Dataspace& dataspace) {
    if (++dataspace.servo_counter > kLastSequence) {
        dataspace.servo_counter = 1;
    }
    return dataspace.servo_counter;
}

// What both forms begin with.
void write_head(Dataspace& dataspace, const SetPoint& point, uint8_t arguments,
                MessageWriter& message) {
    message.u16(method_entry(dataspace, point.method_row).id).u8(arguments);
    message.u8(kTypeReal).f64(point.value);
    message.u8(kTypeU32).u32(next_sequence(dataspace));
    message.u8(kTypeByte).u8(point.flag);
    if (point.vector != nullptr) {
        message.u8(kTypeVector).bytes(point.vector, kVectorLength * sizeof(double));
    }
}

// Protocol version 1: each value is an argument of its own, and the vector goes whenever there is
// one.
void write_form_1(Dataspace& dataspace, const SetPoint& point, MessageWriter& message) {
    const int arguments = 4 + (point.vector != nullptr ? 1 : 0) + point.count;
    write_head(dataspace, point, static_cast<uint8_t>(arguments), message);
    message.u8(kTypeByte).u8(point.count);
    for (int i = 0; i < point.count; ++i) {
        message.u8(kTypeReal).f64(point.values[i]);
    }
}

// Protocol version 2 and the raw path: the values are one array argument, and the vector goes only
// with the flag. An empty array takes the room of one value all the same.
void write_form_2(Dataspace& dataspace, SetPoint point, MessageWriter& message) {
    if (point.flag == 0) {
        point.vector = nullptr;
    }
    write_head(dataspace, point, point.vector != nullptr ? 6 : 5, message);
    message.u8(kTypeArray).u8(1).u8(point.count).u8(kTypeReal);
    if (point.count == 0) {
        message.skip(sizeof(double));
    } else {
        message.bytes(point.values, point.count * sizeof(double));
    }
}

// Builds the set-point in the request buffer. Returns how many bytes to send, or a negative code.
int build(Caller caller, Dataspace& dataspace, const SetPoint& point) {
    const uint32_t version = dataspace.version_word;
    const int header = version == 1 || version == 2 ? 0 : reserve_frame_header(caller, dataspace);
    if (header < 0) {
        return header;
    }
    MessageWriter message = begin_request_behind(dataspace, header, kMethodCall);
    if (version == 1) {
        write_form_1(dataspace, point, message);
    } else {
        write_form_2(dataspace, point, message);
    }
    return header + static_cast<int>(message.finish());
}

// Waits until the receive thread has stored a reply, or the handle comes to its end. Returns the
// reply's own length, or a negative number.
int wait_for_frame_reply(const HeldWhileWaiting& held) {
    sem_t* reply = &held.handle->reply;
    wait_cancellable(held,
                     [reply] { return retry_interrupted([reply] { return sem_wait(reply); }); });
    return held.handle.state().closing() ? VEXO_SOCKET_ERROR : racing_u16(held.handle->response);
}

struct Exchange {
    long sent;
    int received;
};

Exchange exchange(const HeldWhileWaiting& held, int total) {
    Dataspace& dataspace = *held.handle;
    const bool raw = (dataspace.version_word & kVersionRaw) != 0;
    if (raw) {
        socket_raw_set_dstmac(dataspace.raw_socket, dataspace.controller_mac);
    }
    const long sent =
        send_request(dataspace, dataspace.control_socket, kServoFrame, static_cast<size_t>(total));
    if (!raw) {
        return {sent, socket_recv(dataspace.control_socket, dataspace.response, kReadSize,
                                  kReplyMicroseconds)};
    }
    return {sent, dataspace.nack == 0 ? wait_for_frame_reply(held) : 0};
}

// A late or lost acknowledgement is no error: the next set-point is due, unless the handle is at
// its end.
int32_t examine(Caller caller, const Registration& handle, Exchange result) {
    const Dataspace& dataspace = *handle;
    if (result.sent < 0) {
        report(caller, "cvexo_servoj send error: %ld", result.sent);
        return VEXO_ERROR_TRANSPORT;
    }
    const bool raw = (dataspace.version_word & kVersionRaw) != 0;
    if (result.received < 0 || (!raw && result.received == 0)) {
        std::printf("cvexo_servoj recv error: %d\n", result.received);
        return handle.state().closing() ? VEXO_ERROR_TRANSPORT : 0;
    }
    if (dataspace.nack != 0) {
        return 0;
    }
    uint8_t status = 0;
    racing_copy(&status, dataspace.response + kStatusOffset, sizeof status);
    return examine_status(caller, status);
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
    const int total = build(caller, *found, {method_row, value, flag, vector, count, values});
    if (total < 0) {
        return VEXO_ERROR_TRANSPORT;
    }
    return examine(caller, found, exchange({found, lock.hold(), &base_servoj_mutex}, total));
}
