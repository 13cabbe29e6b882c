#include "session/inputs.h"

#include <cstring>
#include <mutex>

#include "session/error.h"
#include "session/robot.h"
#include "session/values.h"

namespace vexo::session {

Inputs::Inputs(Ref<Robot> of, std::vector<std::string> variables, Layout fields)
    : robot(std::move(of)),
      names(std::move(variables)),
      layout(std::move(fields)),
      values_(layout.bytes()),
      set_(layout.fields().size()),
      not_set_(layout.fields().size()),
      frame_(wire::kEthernetHeader + wire::kPackageHeader + layout.bytes()) {}

// ---- By the I/O thread --------------------------------------------------------------------------

void Inputs::stand(Ref<Connection> connection, uint8_t recipe) {
    const std::lock_guard lock(mutex_);
    connection_ = std::move(connection);
    recipe_ = recipe;
}

void Inputs::cut(bool forget_values) {
    const std::lock_guard lock(mutex_);
    connection_ = {};
    if (forget_values) {
        set_.assign(set_.size(), false);
        not_set_ = set_.size();
    }
}

void Inputs::fail() {
    const std::lock_guard lock(mutex_);
    failed_ = true;
}

bool Inputs::stands_on(const Connection* connection) {
    const std::lock_guard lock(mutex_);
    return connection_.get() == connection;
}

// ---- Values -------------------------------------------------------------------------------------

const VexoSessionVariable* Inputs::field(const char* name) {
    const VexoSessionVariable* found = layout.find(name);
    if (found == nullptr) {
        tell(layout.unknown(name));
    }
    return found;
}

uint8_t* Inputs::place(const VexoSessionVariable& field) {
    if (!set_[field.index]) {
        set_[field.index] = true;
        --not_set_;
    }
    return values_.data() + field.offset;
}

namespace {

int32_t wrong(const VexoSessionVariable& field, const char* what) {
    return tell(VEXO_SESSION_WRONG_TYPE, "\"%.150s\" (%s) cannot be %s", field.name,
                vexo_session_type_name(field.type), what);
}

bool put(const VexoSessionVariable& field, uint8_t* element, double value) {
    return put_real(field, element, value);
}

bool put(const VexoSessionVariable& field, uint8_t* element, int64_t value) {
    return put_whole(field, element, value);
}

}  // namespace

// All elements or none: they are written aside first.
template <typename T>
int32_t Inputs::set(const char* name, const T* values, uint32_t count) {
    const VexoSessionVariable* variable = field(name);
    if (variable == nullptr) {
        return VEXO_SESSION_UNKNOWN_NAME;
    }
    if (is_text(*variable)) {
        return wrong(*variable, "set to a number");
    }
    if (count != variable->elements) {
        return wrong(*variable, "set with so many values");
    }
    std::array<uint8_t, 256> bytes;
    const uint32_t width = variable->bytes / variable->elements;
    for (uint32_t i = 0; i < count; ++i) {
        if (!put(*variable, bytes.data() + size_t{i} * width, values[i])) {
            return wrong(*variable, "set to this value");
        }
    }
    const std::lock_guard lock(mutex_);
    std::memcpy(place(*variable), bytes.data(), variable->bytes);
    return VEXO_SESSION_OK;
}

int32_t Inputs::set_text(const char* name, const char* text) {
    const VexoSessionVariable* variable = field(name);
    if (variable == nullptr) {
        return VEXO_SESSION_UNKNOWN_NAME;
    }
    const size_t length = std::strlen(text);
    if (!is_text(*variable) || length > variable->bytes) {
        return wrong(*variable, "set to this text");
    }
    const std::lock_guard lock(mutex_);
    uint8_t* to = place(*variable);
    std::memset(to, 0, variable->bytes);
    std::memcpy(to, text, length);
    return VEXO_SESSION_OK;
}

// ---- Sending ------------------------------------------------------------------------------------

int32_t Inputs::may_send() const {
    if (failed_) {
        return tell(VEXO_SESSION_CATALOGUE_CHANGED, "these inputs are not what they were");
    }
    return connection_ ? VEXO_SESSION_OK
                       : tell(VEXO_SESSION_NOT_CONNECTED, "the session is not connected");
}

int32_t Inputs::send() {
    const std::lock_guard lock(mutex_);
    const int32_t allowed = may_send();
    if (allowed != VEXO_SESSION_OK) {
        return allowed;
    }
    if (not_set_ > 0) {
        size_t missing = 0;
        while (set_[missing]) {
            ++missing;
        }
        return tell(VEXO_SESSION_NOT_SET, "\"%.200s\" has no value since the last cut",
                    layout.fields()[missing].name);
    }
    return transmit(values_);
}

int32_t Inputs::write(std::span<const uint8_t> values) {
    if (values.size() != layout.bytes()) {
        return tell(VEXO_SESSION_TOO_LARGE, "these inputs have %zu bytes, not %zu", layout.bytes(),
                    values.size());
    }
    const std::lock_guard lock(mutex_);
    const int32_t allowed = may_send();
    return allowed == VEXO_SESSION_OK ? transmit(values) : allowed;
}

int32_t Inputs::transmit(std::span<const uint8_t> values) {
    const std::span<uint8_t> room = std::span(frame_).subspan(wire::kEthernetHeader);
    const auto message = wire::input_package(room, recipe_, values).finish();
    const Sent sent = connection_->raw
                          ? connection_->raw->send(wire::FrameCode::input_package, frame_)
                          : connection_->io->send(message);
    switch (sent) {
        case Sent::whole:
            robot->statistics.inputs.add();
            return VEXO_SESSION_OK;
        case Sent::no_room:
            return tell(VEXO_SESSION_SYSTEM,
                        "the socket has no room: the controller does not read");
        case Sent::broken:
            break;
    }
    connection_->give_up(failure(VEXO_SESSION_CUT, "an input package could not be sent"));
    return tell(VEXO_SESSION_CUT, "the connection broke");
}

}  // namespace vexo::session

// ---- The interface ------------------------------------------------------------------------------

#include "session/open_recipe.h"

using namespace vexo::session;

namespace {

constexpr size_t kMostInputs = 16;
constexpr size_t kMostBytes = 1396;

CallOn<Inputs> on(VexoSessionInputs* inputs) {
    return {inputs, HandleKind::inputs};
}

}  // namespace

extern "C" int32_t vexo_session_inputs_open(VexoSession* session, const char* const* names,
                                            uint32_t count, int64_t limit_us,
                                            VexoSessionInputs** inputs) {
    const CallOn<Robot> robot(session, HandleKind::session);
    std::vector<std::string> list;
    if (!robot) {
        return tell_closed();
    }
    if (inputs == nullptr || !copy_names(names, count, list)) {
        return tell(VEXO_SESSION_BAD_ARGUMENT, "no variables are named");
    }
    const Nanoseconds deadline = deadline_after(limit_us);
    VexoSessionError error{};
    auto layout =
        layout_when_known(*robot, VEXO_SESSION_INPUT, list, 0, kMostBytes, deadline, error);
    if (!layout) {
        return tell(error);
    }
    auto made = make<Inputs>(Ref<Robot>::share(&*robot), std::move(list), std::move(*layout));
    {
        const std::lock_guard lock(robot->monitor);
        if (robot->wanted.inputs.size() >= kMostInputs) {
            return tell(VEXO_SESSION_BUSY, "%zu inputs are open already", kMostInputs);
        }
        robot->wanted.inputs.push_back(made);
    }
    Handle handle = 0;
    const int32_t result = await_recipe(*robot, *made, deadline, [&] {
        handle = add_handle(HandleKind::inputs, *made);
        robot->children.push_back(handle);
        return handle != 0;
    });
    if (result != VEXO_SESSION_OK) {
        const std::lock_guard lock(robot->monitor);
        std::erase(robot->wanted.inputs, made);
        return result;
    }
    *inputs = reinterpret_cast<VexoSessionInputs*>(handle);
    return VEXO_SESSION_OK;
}

extern "C" int32_t vexo_session_inputs_close(VexoSessionInputs* inputs) {
    const CallOn<Inputs> call = on(inputs);
    const auto handle = reinterpret_cast<Handle>(inputs);
    if (!call || !shut_handle(handle)) {
        return tell_closed();
    }
    Robot& robot = *call->robot;
    const std::lock_guard lock(robot.monitor);
    std::erase(robot.wanted.inputs, Ref<Inputs>::share(&*call));
    std::erase(robot.children, handle);
    return VEXO_SESSION_OK;
}

extern "C" int32_t vexo_session_inputs_field(VexoSessionInputs* inputs, uint32_t index,
                                             VexoSessionVariable* field) {
    const CallOn<Inputs> call = on(inputs);
    return call ? give_field(call->layout, index, field) : tell_closed();
}

extern "C" int32_t vexo_session_inputs_find(VexoSessionInputs* inputs, const char* name,
                                            VexoSessionVariable* field) {
    const CallOn<Inputs> call = on(inputs);
    return call ? give_field(call->layout, name, field) : tell_closed();
}

extern "C" int32_t vexo_session_inputs_set_f64(VexoSessionInputs* inputs, const char* name,
                                               const double* values, uint32_t count) {
    const CallOn<Inputs> call = on(inputs);
    if (name == nullptr || values == nullptr) {
        return tell_null("an argument");
    }
    return call ? call->set(name, values, count) : tell_closed();
}

extern "C" int32_t vexo_session_inputs_set_i64(VexoSessionInputs* inputs, const char* name,
                                               const int64_t* values, uint32_t count) {
    const CallOn<Inputs> call = on(inputs);
    if (name == nullptr || values == nullptr) {
        return tell_null("an argument");
    }
    return call ? call->set(name, values, count) : tell_closed();
}

extern "C" int32_t vexo_session_inputs_set_text(VexoSessionInputs* inputs, const char* name,
                                                const char* text) {
    const CallOn<Inputs> call = on(inputs);
    if (name == nullptr || text == nullptr) {
        return tell_null("an argument");
    }
    return call ? call->set_text(name, text) : tell_closed();
}

extern "C" int32_t vexo_session_inputs_send(VexoSessionInputs* inputs) {
    const CallOn<Inputs> call = on(inputs);
    return call ? call->send() : tell_closed();
}

extern "C" int32_t vexo_session_inputs_write(VexoSessionInputs* inputs, const void* values,
                                             size_t bytes) {
    const CallOn<Inputs> call = on(inputs);
    if (values == nullptr) {
        return tell_null("values");
    }
    return call ? call->write({static_cast<const uint8_t*>(values), bytes}) : tell_closed();
}
