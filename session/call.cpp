// Calls of the controller's methods, with the types that the caller gives.
#include <cstring>
#include <mutex>

#include "session/error.h"
#include "session/open_recipe.h"
#include "session/robot.h"
#include "session/structure.h"
#include "wire/controller_version.h"
#include "wire/method_call.h"

using namespace vexo::session;
namespace wire = vexo::wire;

namespace {

constexpr size_t kLongestMessage = 65535;
constexpr uint32_t kMostArguments = 255;

// Who gets what the controller sends back.
struct ReplyRoom {
    void* bytes;
    size_t* size;  // null: nobody

    std::span<uint8_t> room() const {
        return bytes != nullptr && size != nullptr ? std::span(static_cast<uint8_t*>(bytes), *size)
                                                   : std::span<uint8_t>();
    }
    void came(size_t count) const {
        if (size != nullptr) {
            *size = count;
        }
    }
};

// Makes a request over the I/O connection and waits for the answer.
int32_t request(Robot& robot, std::span<const uint8_t> message, const ReplyRoom& reply,
                Nanoseconds deadline, Nanoseconds* round_trip) {
    Request request;
    request.message = message;
    request.reply_room = reply.room();
    {
        const std::lock_guard lock(robot.monitor);
        if (robot.standing.state < VEXO_SESSION_STATE_READY) {
            return tell(VEXO_SESSION_NOT_CONNECTED, "the session is %s",
                        vexo_session_state_name(robot.standing.state));
        }
        robot.requests.add(request);
    }
    robot.wake();
    {
        const std::lock_guard lock(robot.monitor);
        const auto done = [&] { return request.stage == Request::Stage::done; };
        if (!robot.monitor.wait_until(deadline, done)) {
            robot.requests.withdraw(request);
            tell(VEXO_SESSION_TIMED_OUT, "the controller has not answered in time");
        }
    }
    if (request.stage != Request::Stage::done) {
        robot.wake();
        return VEXO_SESSION_TIMED_OUT;
    }
    if (request.error.code != VEXO_SESSION_OK) {
        return tell(request.error);
    }
    reply.came(request.reply_bytes);
    if (round_trip != nullptr) {
        *round_trip = request.round_trip;
    }
    return VEXO_SESSION_OK;
}

int32_t answered(Robot& robot, const Answer& answer, const ReplyRoom& reply) {
    if (answer.status != 0) {
        robot.statistics.refused.add();
        return tell(
            refusal(answer.status, "the controller refuses it with the status %u", answer.status));
    }
    const std::span<uint8_t> room = reply.room();
    std::copy_n(answer.payload.begin(), std::min(room.size(), answer.payload.size()), room.begin());
    reply.came(answer.payload.size());
    return VEXO_SESSION_OK;
}

// The same over the control connection, by the calling thread.
int32_t request_control(Robot& robot, std::span<const uint8_t> message, const ReplyRoom& reply,
                        Nanoseconds deadline) {
    const Ref<Live> live = robot.live();
    if (!live) {
        return tell(VEXO_SESSION_NOT_CONNECTED, "the session is not connected");
    }
    ControlPort& control = *live->control;
    if (!control.take_turn(deadline)) {
        return tell(VEXO_SESSION_TIMED_OUT, "another call on the control connection lasts");
    }
    std::memcpy(control.message_room().data(), message.data(), message.size());
    ControlPort::Manner manner;
    manner.deadline = deadline;
    manner.measure = VEXO_SESSION_MEASURE_ROUND_TRIP;
    Answer answer;
    robot.statistics.requests.add();
    const Outcome outcome = control.exchange(message.size(), manner, answer);
    int32_t result = VEXO_SESSION_OK;
    if (outcome == Outcome::acknowledged) {
        result = answered(robot, answer, reply);
    }
    control.end_turn();
    switch (outcome) {
        case Outcome::acknowledged:
            return result;
        case Outcome::timed_out:
            robot.statistics.timed_out.add();
            return tell(VEXO_SESSION_TIMED_OUT, "the controller has not answered in time");
        case Outcome::no_room:
            return tell(VEXO_SESSION_SYSTEM, "it could not be sent: there is no room");
        default:
            return robot.closed.load() ? tell_closed()
                                       : tell(VEXO_SESSION_CUT, "the connection broke");
    }
}

// The argument as it goes on its way. False: its type, size or count cannot be.
bool convert(const VexoSessionArgument& given, std::vector<wire::Argument>& list) {
    const bool array = given.type == VEXO_TYPE_ARRAY;
    const uint32_t type = array ? given.element : given.type;
    if (type > VEXO_TYPE_TEXT || (array && given.count > UINT8_MAX)) {
        return false;
    }
    const size_t bytes = wire::type_width(static_cast<uint8_t>(type)) * (array ? given.count : 1);
    if (given.data == nullptr && bytes > 0) {
        return false;
    }
    const std::span data(static_cast<const uint8_t*>(given.data), bytes);
    list.push_back(array ? wire::Argument::array(static_cast<uint8_t>(type), data)
                         : wire::Argument::value(static_cast<uint8_t>(type), data));
    return list.back().fits();
}

bool over_control(uint32_t port, const char* method) {
    return port == VEXO_SESSION_PORT_CONTROL ||
           (port == VEXO_SESSION_PORT_BY_NAME && std::strncmp(method, "servo", 5) == 0);
}

int32_t find_method(Robot& robot, const char* name, uint16_t& number) {
    Ref<Catalogue> catalogue;
    {
        const std::lock_guard lock(robot.monitor);
        catalogue = robot.catalogue;
    }
    if (!catalogue) {
        return tell(VEXO_SESSION_NOT_CONNECTED, "no catalogue has been read yet");
    }
    const Entry* entry = catalogue->find(VEXO_SESSION_METHOD, name);
    if (entry == nullptr) {
        return tell(catalogue->unknown(VEXO_SESSION_METHOD, name));
    }
    number = static_cast<uint16_t>(entry->id);
    return VEXO_SESSION_OK;
}

}  // namespace

extern "C" int32_t vexo_session_call(VexoSession* session, const char* method,
                                     const VexoSessionArgument* arguments, uint32_t count,
                                     uint32_t port, void* reply, size_t* reply_bytes,
                                     int64_t limit_us) {
    const Nanoseconds deadline = deadline_after(limit_us);
    const CallOn<Robot> robot(session, HandleKind::session);
    if (!robot) {
        return tell_closed();
    }
    const bool known_port = port == VEXO_SESSION_PORT_BY_NAME || port == VEXO_SESSION_PORT_IO ||
                            port == VEXO_SESSION_PORT_CONTROL;
    if (method == nullptr || (arguments == nullptr && count > 0) || count > kMostArguments ||
        !known_port) {
        return tell(VEXO_SESSION_BAD_ARGUMENT, "no method, too many arguments, or no such port");
    }
    uint16_t number = 0;
    const int32_t found = find_method(*robot, method, number);
    if (found != VEXO_SESSION_OK) {
        return found;
    }
    std::vector<wire::Argument> list;
    for (uint32_t i = 0; i < count; ++i) {
        if (!convert(arguments[i], list)) {
            return tell(VEXO_SESSION_WRONG_TYPE, "argument %u has no type that there is", i);
        }
    }
    std::vector<uint8_t> buffer(kLongestMessage);
    wire::MessageWriter message = wire::method_call(buffer, number, list);
    const std::span<const uint8_t> bytes = message.finish();
    if (!message.ok()) {
        return tell(VEXO_SESSION_TOO_LARGE, "the arguments do not fit a message");
    }
    const ReplyRoom room{reply, reply_bytes};
    return over_control(port, method) ? request_control(*robot, bytes, room, deadline)
                                      : request(*robot, bytes, room, deadline, nullptr);
}

extern "C" int32_t vexo_session_ping(VexoSession* session, int64_t limit_us,
                                     int64_t* round_trip_ns) {
    const Nanoseconds deadline = deadline_after(limit_us);
    const CallOn<Robot> robot(session, HandleKind::session);
    if (!robot) {
        return tell_closed();
    }
    std::array<uint8_t, wire::kMessageHeader> buffer;
    const auto message = wire::controller_version_request(buffer).finish();
    return request(*robot, message, {nullptr, nullptr}, deadline, round_trip_ns);
}
