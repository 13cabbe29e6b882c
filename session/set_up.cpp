#include "session/set_up.h"

#include <mutex>

#include "session/error.h"
#include "wire/controller_version.h"
#include "wire/negotiation.h"

namespace vexo::session {

SetUp::SetUp(Robot& robot, Receiver& receiver)
    : robot_(robot), recipes_(robot, receiver), buffer_(new uint8_t[kLongestMessage]) {}

void SetUp::begin(Ref<Connection> connection, Ref<RawPort> stream_port) {
    connection_ = std::move(connection);
    stream_port_ = std::move(stream_port);
    step_ = Step::version;
    lists_.begin(connection_->version);
    recipes_.begin(connection_);
    robot_.enter(VEXO_SESSION_STATE_NEGOTIATING);
}

void SetUp::end() {
    connection_ = {};
    stream_port_ = {};
    recipes_.end();
}

std::span<const uint8_t> SetUp::next() {
    switch (step_) {
        case Step::version: {
            const uint64_t word =
                wire::version_word(connection_->version, !connection_->acknowledges);
            const wire::MacBytes host =
                connection_->raw ? connection_->raw->own_address() : wire::MacBytes{};
            return wire::negotiation_request(buffer(), word, host).finish();
        }
        case Step::controller:
            return wire::controller_version_request(buffer()).finish();
        case Step::lists:
            return lists_.next(buffer());
        case Step::recipes:
            break;
    }
    return recipes_.next(buffer());
}

std::optional<VexoSessionError> SetUp::take(std::span<const uint8_t> reply) {
    switch (step_) {
        case Step::version:
            return take_version(reply);
        case Step::controller:
            take_controller(reply);
            return std::nullopt;
        case Step::lists:
            return take_page(reply);
        case Step::recipes:
            break;
    }
    return recipes_.take(reply);
}

std::optional<VexoSessionError> SetUp::take_version(std::span<const uint8_t> reply) {
    if (wire::reply_status(reply) != 0) {
        return refused(reply, robot_.settings.raw() ? "the raw path" : "the protocol version");
    }
    if (connection_->raw) {
        const wire::MacBytes controller = wire::controller_mac(reply);
        stream_port_->listen_to(controller);
        connection_->raw->listen_to(controller, wire::FrameCode::set_point);
        const std::lock_guard lock(robot_.monitor);
        robot_.standing.controller_mac = controller;
        robot_.standing.host_mac = connection_->raw->own_address();
    }
    step_ = Step::controller;
    robot_.enter(VEXO_SESSION_STATE_READING_CATALOGUE);
    return std::nullopt;
}

// A controller that does not tell is not asked again.
void SetUp::take_controller(std::span<const uint8_t> reply) {
    if (wire::reply_status(reply) == 0) {
        const wire::ControllerVersion version = wire::controller_version(reply);
        const std::lock_guard lock(robot_.monitor);
        robot_.standing.model = version.model;
        robot_.standing.firmware = version.firmware;
        robot_.standing.hardware = version.hardware;
        robot_.standing.bootloader = version.bootloader;
    }
    step_ = Step::lists;
}

std::optional<VexoSessionError> SetUp::take_page(std::span<const uint8_t> reply) {
    const std::optional<VexoSessionError> error = lists_.take(reply);
    if (!error && lists_.complete()) {
        robot_.offer(lists_.catalogue());
        step_ = Step::recipes;
        robot_.enter(VEXO_SESSION_STATE_SETTING_UP);
    }
    return error;
}

}  // namespace vexo::session
