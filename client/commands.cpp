// The commands that send one method call and wait for its acknowledgement.
#include "client/commands.h"

#include <initializer_list>

#include "client/exchange.h"
#include "client/vexo.h"
#include "wire/method_call.h"

using namespace vexo;

namespace {

using wire::Argument;
using Arguments = std::initializer_list<Argument>;

wire::MessageWriter build_call(Caller caller, Dataspace& dataspace, Purpose purpose,
                               int32_t method_row, Arguments arguments) {
    return wire::method_call(begin_message(caller, dataspace, purpose),
                             method_entry(dataspace, method_row).id,
                             {arguments.begin(), arguments.size()});
}

// One command: 0, the controller's status, VEXO_ERROR_TRANSPORT, or -1.
int32_t command(Caller caller, int32_t method_row, Arguments arguments = {},
                Purpose purpose = Purpose::request) {
    const Registration found = find_or_record_null(caller);
    if (!found) {
        return -1;
    }
    return request(caller, found, build_call(caller, *found, purpose, method_row, arguments),
                   purpose);
}

int32_t set_output(Caller caller, int32_t method_row, uint8_t output, uint8_t state) {
    return command(caller, method_row, {Argument::byte(output), Argument::flag(state)});
}

// The result is the status byte with the three bytes behind it, of which only the first is tested.
int32_t read_bits(Caller caller, int32_t method_row, uint64_t* bits) {
    const Registration found = find_or_record_null(caller);
    if (!found) {
        return -1;
    }
    const auto call = build_call(caller, *found, Purpose::request, method_row, {});
    if (transfer_failed(caller, transfer(found, call))) {
        return VEXO_ERROR_TRANSPORT;
    }
    const wire::BitsReply reply = wire::bits_reply(response(*found));
    const auto result = static_cast<int32_t>(reply.status_word);
    if (wire::reply_status(response(*found)) != 0) {
        return examine_status(caller, result);
    }
    *bits = reply.bits;
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
    return command({handle, __func__}, method_row, {Argument::real(value)},
                   Purpose::control_request);
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
