#include "session/set_up.h"

#include <mutex>

#include "session/error.h"
#include "session/inputs.h"
#include "session/receiver.h"
#include "session/stream.h"
#include "wire/catalogue.h"
#include "wire/controller_version.h"
#include "wire/negotiation.h"
#include "wire/recipe.h"

namespace vexo::session {

namespace {

// An empty page where a list begins is asked for again so often, before the list counts as empty.
constexpr uint32_t kEmptyPages = 3;

VexoSessionError refused(std::span<const uint8_t> reply, const char* what) {
    const uint8_t status = wire::reply_status(reply);
    return refusal(status, "the controller refuses %s with the status %u", what, status);
}

bool accepted(std::span<const uint8_t> reply) {
    return wire::reply_status(reply) == 0;
}

}  // namespace

SetUp::SetUp(Robot& robot, Receiver& receiver)
    : robot_(robot), receiver_(receiver), buffer_(new uint8_t[kLongestMessage]) {}

void SetUp::begin(Ref<Connection> connection, Ref<RawPort> stream_port) {
    connection_ = std::move(connection);
    stream_port_ = std::move(stream_port);
    step_ = Step::version;
    asked_ = Asked::nothing;
    first_ = 0;
    empty_pages_ = 0;
    reading_ = make<Catalogue>();
    started_ = false;
    robot_.enter(VEXO_SESSION_STATE_NEGOTIATING);
}

void SetUp::end() {
    connection_ = {};
    stream_port_ = {};
    stream_ = {};
    input_ = {};
    started_ = false;
    asked_ = Asked::nothing;
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
        case Step::outputs:
        case Step::inputs:
        case Step::methods:
            return wire::page_request(buffer(), list_letter(), first_).finish();
        case Step::recipes:
            break;
    }
    return next_recipe();
}

wire::Letter SetUp::list_letter() const {
    return step_ == Step::outputs  ? wire::Letter::output_page
           : step_ == Step::inputs ? wire::Letter::input_page
                                   : wire::Letter::method_page;
}

std::optional<VexoSessionError> SetUp::take(std::span<const uint8_t> reply) {
    switch (step_) {
        case Step::version:
            return take_version(reply);
        case Step::controller:
            return take_controller(reply);
        case Step::outputs:
        case Step::inputs:
        case Step::methods:
            return take_page(reply);
        case Step::recipes:
            break;
    }
    return take_recipe(reply);
}

std::optional<VexoSessionError> SetUp::take_version(std::span<const uint8_t> reply) {
    if (!accepted(reply)) {
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
std::optional<VexoSessionError> SetUp::take_controller(std::span<const uint8_t> reply) {
    if (accepted(reply)) {
        const wire::ControllerVersion version = wire::controller_version(reply);
        const std::lock_guard lock(robot_.monitor);
        robot_.standing.model = version.model;
        robot_.standing.firmware = version.firmware;
        robot_.standing.hardware = version.hardware;
        robot_.standing.bootloader = version.bootloader;
    }
    step_ = Step::outputs;
    return std::nullopt;
}

// ---- The lists ----------------------------------------------------------------------------------

namespace {

Entry entry_of(uint32_t kind, const wire::VariableRow& row) {
    return {kind, std::string(row.name), row.id, row.type};
}

Entry entry_of(uint32_t kind, const wire::MethodRow& row) {
    return {kind, std::string(row.name), row.id, 0};
}

}  // namespace

template <typename Page>
bool SetUp::add_rows(std::span<const uint8_t> reply, uint32_t kind, uint32_t& count) {
    Page page(reply);
    count = page.count();
    for (uint32_t i = 0; i < count; ++i) {
        const auto row = page.next();
        if (!page.ok() || !reading_->add(entry_of(kind, row))) {
            return false;
        }
    }
    return page.ok();
}

std::optional<VexoSessionError> SetUp::take_page(std::span<const uint8_t> reply) {
    if (!accepted(reply)) {
        return refused(reply, "a page of its catalogue");
    }
    uint32_t count = 0;
    const bool sound =
        step_ == Step::outputs  ? add_rows<wire::VariablePage>(reply, VEXO_SESSION_OUTPUT, count)
        : step_ == Step::inputs ? add_rows<wire::VariablePage>(reply, VEXO_SESSION_INPUT, count)
                                : add_rows<wire::MethodPage>(reply, VEXO_SESSION_METHOD, count);
    if (!sound) {
        return failure(VEXO_SESSION_OUT_OF_STEP, "a page of the catalogue makes no sense");
    }
    const uint32_t page_size = connection_->version > 1 ? wire::kLargePage : wire::kSmallPage;
    first_ += count;
    if (count == 0 && first_ == 0 && ++empty_pages_ <= kEmptyPages) {
        return std::nullopt;
    }
    if (count < page_size) {
        first_ = 0;
        empty_pages_ = 0;
        step_ = static_cast<Step>(static_cast<int>(step_) + 1);
        if (step_ == Step::recipes) {
            lists_complete();
        }
    }
    return std::nullopt;
}

// The catalogue that callers hold stays theirs; an equal one is not told as a new one.
void SetUp::lists_complete() {
    reading_->complete();
    {
        const std::lock_guard lock(robot_.monitor);
        const bool first = !robot_.catalogue;
        if (first || !robot_.catalogue->same(*reading_)) {
            robot_.catalogue = reading_;
            ++robot_.standing.revision;
            if (!first) {
                robot_.events.count(VEXO_SESSION_EVENT_CATALOGUE, robot_.standing.revision);
            }
        }
        robot_.monitor.tell_all();
    }
    robot_.enter(VEXO_SESSION_STATE_SETTING_UP);
}

// ---- Recipes ------------------------------------------------------------------------------------

// What is wanted and does not stand yet.
std::span<const uint8_t> SetUp::next_recipe() {
    const std::lock_guard lock(robot_.monitor);
    const Wanted& wanted = robot_.wanted;
    if (started_ && stream_ != wanted.stream) {
        asked_ = Asked::pause;
        return wire::pause_request(buffer()).finish();
    }
    if (wanted.stream && wanted.stream->progress != Progress::failed) {
        if (stream_ != wanted.stream) {
            const std::span<const uint8_t> request = ask_output();
            if (!request.empty()) {
                return request;
            }
        } else if (!started_) {
            asked_ = Asked::start;
            return wire::start_request(buffer()).finish();
        }
    }
    for (const Ref<Inputs>& inputs : wanted.inputs) {
        if (inputs->progress != Progress::failed && !inputs->stands_on(connection_.get())) {
            const std::span<const uint8_t> request = ask_input(*inputs);
            if (!request.empty()) {
                return request;
            }
        }
    }
    asked_ = Asked::nothing;
    return {};
}

namespace {

// The same names, with the ids of this catalogue; empty when they are not what they were.
std::optional<Layout> same_in(const Catalogue& catalogue, uint32_t kinds,
                              const std::vector<std::string>& names, const Layout& before,
                              VexoSessionError& error) {
    VexoSessionError why{};
    std::optional<Layout> now =
        Layout::make(catalogue, kinds, names, before.fields().front().offset, SIZE_MAX, why);
    if (now && now->same(before)) {
        return now;
    }
    error =
        failure(VEXO_SESSION_CATALOGUE_CHANGED, "%s",
                now ? "variables of the recipe have other types in the new catalogue" : why.cause);
    return std::nullopt;
}

}  // namespace

// Empty when the recipe cannot be set up any more. The monitor is held.
std::span<const uint8_t> SetUp::ask_output() {
    Stream& stream = *robot_.wanted.stream;
    VexoSessionError error{};
    const auto layout = same_in(*robot_.catalogue, VEXO_SESSION_OUTPUT | VEXO_SESSION_INPUT,
                                stream.names, stream.layout, error);
    if (!layout) {
        stream.fail(error);
        robot_.note(VEXO_SESSION_EVENT_ERROR, error);
        return {};
    }
    asked_ = Asked::output;
    const auto& fields = layout->fields();
    wire::MessageWriter request = wire::output_recipe_request(buffer(), stream.options.header_word,
                                                              static_cast<uint16_t>(fields.size()));
    for (const VexoSessionVariable& field : fields) {
        request.u32(field.id);
    }
    stream_ = robot_.wanted.stream;
    return request.finish();
}

std::span<const uint8_t> SetUp::ask_input(Inputs& inputs) {
    VexoSessionError error{};
    const auto layout =
        same_in(*robot_.catalogue, VEXO_SESSION_INPUT, inputs.names, inputs.layout, error);
    if (!layout) {
        inputs.progress = Progress::failed;
        inputs.error = error;
        inputs.fail();
        robot_.note(VEXO_SESSION_EVENT_ERROR, error);
        return {};
    }
    asked_ = Asked::input;
    input_ = Ref<Inputs>::share(&inputs);
    const auto& fields = layout->fields();
    wire::MessageWriter request =
        wire::input_recipe_request(buffer(), static_cast<uint16_t>(fields.size()));
    for (const VexoSessionVariable& field : fields) {
        request.u32(field.id);
    }
    return request.finish();
}

std::optional<VexoSessionError> SetUp::take_recipe(std::span<const uint8_t> reply) {
    switch (std::exchange(asked_, Asked::nothing)) {
        case Asked::output:
            return take_output(reply);
        case Asked::start:
            return take_start(reply);
        case Asked::input:
            return take_input(reply);
        case Asked::pause:
            take_pause(reply);
            break;
        case Asked::nothing:
            break;
    }
    return std::nullopt;
}

namespace {

// A recipe that never stood is given back to its caller. One that did ends the connection: the
// controller may take it at the next attempt.
template <typename Recipe>
std::optional<VexoSessionError> recipe_refused(Recipe& recipe, const VexoSessionError& error) {
    if (recipe.progress == Progress::standing) {
        return error;
    }
    recipe.progress = Progress::failed;
    recipe.error = error;
    return std::nullopt;
}

}  // namespace

std::optional<VexoSessionError> SetUp::take_output(std::span<const uint8_t> reply) {
    const std::lock_guard lock(robot_.monitor);
    if (!accepted(reply)) {
        const Ref<Stream> stream = std::exchange(stream_, {});
        robot_.monitor.tell_all();
        return recipe_refused(*stream, refused(reply, "the recipe"));
    }
    recipe_ = wire::recipe_id(reply);
    receiver_.expect(stream_, recipe_, connection_->number);
    return std::nullopt;
}

std::optional<VexoSessionError> SetUp::take_start(std::span<const uint8_t> reply) {
    const std::lock_guard lock(robot_.monitor);
    robot_.monitor.tell_all();
    if (!accepted(reply)) {
        receiver_.expect_nothing();
        const Ref<Stream> stream = std::exchange(stream_, {});
        return recipe_refused(*stream, refused(reply, "to start the stream"));
    }
    started_ = true;
    stream_->progress = Progress::standing;
    return std::nullopt;
}

void SetUp::take_pause(std::span<const uint8_t> reply) {
    receiver_.expect_nothing();
    started_ = false;
    const Ref<Stream> paused = std::exchange(stream_, {});
    const std::lock_guard lock(robot_.monitor);
    if (!accepted(reply)) {
        paused->error = refused(reply, "to pause the stream");
    }
    if (robot_.wanted.ending == paused) {
        robot_.wanted.ending = {};
    }
    robot_.monitor.tell_all();
}

std::optional<VexoSessionError> SetUp::take_input(std::span<const uint8_t> reply) {
    const Ref<Inputs> inputs = std::exchange(input_, {});
    const std::lock_guard lock(robot_.monitor);
    robot_.monitor.tell_all();
    if (!accepted(reply)) {
        return recipe_refused(*inputs, refused(reply, "the recipe of the inputs"));
    }
    inputs->progress = Progress::standing;
    inputs->stand(connection_, wire::recipe_id(reply));
    return std::nullopt;
}

}  // namespace vexo::session
