// The commands that send one method call and wait for its acknowledgement.
#include "client/commands.h"

#include <initializer_list>

#include "client/exchange.h"
#include "client/method_call.h"
#include "client/registry.h"
#include "client/vexo.h"

using namespace vexo;

namespace {

enum class Port { io, control };

// A typed argument of a method call.
struct Argument {
    uint8_t type;
    double number;
    uint8_t byte;

    static Argument real(double value) { return {kTypeReal, value, 0}; }
    static Argument byte_of_type(uint8_t type, uint8_t value) { return {type, 0, value}; }
};

MessageWriter begin_call(Dataspace& dataspace, int32_t method_row,
                         std::initializer_list<Argument> arguments) {
    MessageWriter message = begin_request(dataspace, kMethodCall);
    message.u16(method_entry(dataspace, method_row).id).u8(static_cast<uint8_t>(arguments.size()));
    for (const Argument& argument : arguments) {
        message.u8(argument.type);
        if (argument.type == kTypeReal) {
            message.f64(argument.number);
        } else {
            message.u8(argument.byte);
        }
    }
    return message;
}

// One command: 0, the controller's status, VEXO_ERROR_TRANSPORT, or -1.
int32_t command(Caller caller, int32_t method_row, std::initializer_list<Argument> arguments = {},
                Port port = Port::io) {
    const Registration found = find_or_record_null(caller);
    if (!found) {
        return -1;
    }
    MessageWriter message = begin_call(*found, method_row, arguments);
    const int socket = port == Port::io ? found->io_socket : found->control_socket;
    return request(caller, found, socket, message);
}

int32_t set_output(Caller caller, int32_t method_row, uint8_t output, uint8_t state) {
    return command(
        caller, method_row,
        {Argument::byte_of_type(kTypeByte, output), Argument::byte_of_type(kTypeFlag, state)});
}

// The result is the status byte with the three bytes behind it.
int32_t read_bits(Caller caller, int32_t method_row, uint64_t* bits) {
    const Registration found = find_or_record_null(caller);
    if (!found) {
        return -1;
    }
    MessageWriter message = begin_call(*found, method_row, {});
    if (transfer_failed(caller, transfer(found, found->io_socket, message))) {
        return VEXO_ERROR_TRANSPORT;
    }
    MessageReader reply(found->response, sizeof found->response, kStatusOffset);
    const auto result = static_cast<int32_t>(reply.u32());
    if (found->response[kStatusOffset] != 0) {
        return examine_status(caller, result);
    }
    *bits = reply.u64();
    return result;
}

}  // namespace

int32_t vexo_set_percentvelocity(uint32_t handle, int32_t method_row, double value) {
    return command({handle, __func__}, method_row, {Argument::real(value)});
}

int32_t vexo_set_setstandarddigitalout(uint32_t handle, int32_t method_row, uint8_t output,
                                       uint8_t state) {
    return set_output({handle, __func__}, method_row, output, state);
}

int32_t vexo_set_setconfigurabledigitalout(uint32_t handle, int32_t method_row, uint8_t output,
                                           uint8_t state) {
    return set_output({handle, __func__}, method_row, output, state);
}

int32_t vexo_set_settooldigitalout(uint32_t handle, int32_t method_row, uint8_t output,
                                   uint8_t state) {
    return set_output({handle, __func__}, method_row, output, state);
}

int32_t vexo_set_getalldigitalinputbits(uint32_t handle, int32_t method_row, uint64_t* bits) {
    return read_bits({handle, __func__}, method_row, bits);
}

int32_t vexo_set_getalldigitaloutputbits(uint32_t handle, int32_t method_row, uint64_t* bits) {
    return read_bits({handle, __func__}, method_row, bits);
}

int32_t cvexo_servo_stop(uint32_t handle, int32_t method_row, double value) {
    return command({handle, __func__}, method_row, {Argument::real(value)}, Port::control);
}

int32_t cvexo_resterror(uint32_t handle, int32_t method_row) {
    return command({handle, __func__}, method_row);
}

int32_t cvexo_startinertiacomp(uint32_t handle, int32_t method_row) {
    return command({handle, __func__}, method_row);
}

int32_t cvexo_starttorquecomp(uint32_t handle, int32_t method_row) {
    return command({handle, __func__}, method_row);
}

int32_t cvexo_stopinertiacomp(uint32_t handle, int32_t method_row) {
    return command({handle, __func__}, method_row);
}

int32_t cvexo_stoptorquecomp(uint32_t handle, int32_t method_row) {
    return command({handle, __func__}, method_row);
}

int32_t cvexo_startlogoutput(uint32_t handle, int32_t method_row) {
    return command({handle, __func__}, method_row);
}

int32_t cvexo_startsensorforceinput(uint32_t handle, int32_t method_row) {
    return command({handle, __func__}, method_row);
}

int32_t cvexo_stopsensorforceinput(uint32_t handle, int32_t method_row) {
    return command({handle, __func__}, method_row);
}
