#include "session/recipe_set_up.h"

#include <mutex>

#include "session/error.h"
#include "session/receiver.h"
#include "wire/recipe.h"

namespace vexo::session {

void RecipeSetUp::begin(Ref<Connection> connection) {
    connection_ = std::move(connection);
    asked_ = Asked::nothing;
    started_ = false;
}

void RecipeSetUp::end() {
    connection_ = {};
    stream_ = {};
    input_ = {};
    asked_ = Asked::nothing;
    started_ = false;
}

// What is wanted and does not stand yet.
std::span<const uint8_t> RecipeSetUp::next(std::span<uint8_t> buffer) {
    const std::lock_guard lock(robot_.monitor);
    const Wanted& wanted = robot_.wanted;
    if (started_ && stream_ != wanted.stream) {
        asked_ = Asked::pause;
        return wire::pause_request(buffer).finish();
    }
    if (wanted.stream && wanted.stream->progress != Progress::failed) {
        if (stream_ != wanted.stream) {
            const std::span<const uint8_t> request = ask_output(buffer);
            if (!request.empty()) {
                return request;
            }
        } else if (!started_) {
            asked_ = Asked::start;
            return wire::start_request(buffer).finish();
        }
    }
    for (const Ref<Inputs>& inputs : wanted.inputs) {
        if (inputs->progress != Progress::failed && !inputs->stands_on(connection_.get())) {
            const std::span<const uint8_t> request = ask_input(*inputs, buffer);
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
std::span<const uint8_t> RecipeSetUp::ask_output(std::span<uint8_t> buffer) {
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
    wire::MessageWriter request = wire::output_recipe_request(buffer, stream.options.header_word,
                                                              static_cast<uint16_t>(fields.size()));
    for (const VexoSessionVariable& field : fields) {
        request.u32(field.id);
    }
    stream_ = robot_.wanted.stream;
    return request.finish();
}

std::span<const uint8_t> RecipeSetUp::ask_input(Inputs& inputs, std::span<uint8_t> buffer) {
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
        wire::input_recipe_request(buffer, static_cast<uint16_t>(fields.size()));
    for (const VexoSessionVariable& field : fields) {
        request.u32(field.id);
    }
    return request.finish();
}

std::optional<VexoSessionError> RecipeSetUp::take(std::span<const uint8_t> reply) {
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

std::optional<VexoSessionError> RecipeSetUp::take_output(std::span<const uint8_t> reply) {
    const std::lock_guard lock(robot_.monitor);
    if (wire::reply_status(reply) != 0) {
        const Ref<Stream> stream = std::exchange(stream_, {});
        robot_.monitor.tell_all();
        return recipe_refused(*stream, refused(reply, "the recipe"));
    }
    receiver_.expect(stream_, wire::recipe_id(reply), connection_->number);
    return std::nullopt;
}

std::optional<VexoSessionError> RecipeSetUp::take_start(std::span<const uint8_t> reply) {
    const std::lock_guard lock(robot_.monitor);
    robot_.monitor.tell_all();
    if (wire::reply_status(reply) != 0) {
        receiver_.expect_nothing();
        const Ref<Stream> stream = std::exchange(stream_, {});
        return recipe_refused(*stream, refused(reply, "to start the stream"));
    }
    started_ = true;
    stream_->progress = Progress::standing;
    return std::nullopt;
}

void RecipeSetUp::take_pause(std::span<const uint8_t> reply) {
    receiver_.expect_nothing();
    started_ = false;
    const Ref<Stream> paused = std::exchange(stream_, {});
    const std::lock_guard lock(robot_.monitor);
    if (wire::reply_status(reply) != 0) {
        paused->error = refused(reply, "to pause the stream");
    }
    if (robot_.wanted.ending == paused) {
        robot_.wanted.ending = {};
    }
    robot_.monitor.tell_all();
}

std::optional<VexoSessionError> RecipeSetUp::take_input(std::span<const uint8_t> reply) {
    const Ref<Inputs> inputs = std::exchange(input_, {});
    const std::lock_guard lock(robot_.monitor);
    robot_.monitor.tell_all();
    if (wire::reply_status(reply) != 0) {
        return recipe_refused(*inputs, refused(reply, "the recipe of the inputs"));
    }
    inputs->progress = Progress::standing;
    inputs->stand(connection_, wire::recipe_id(reply));
    return std::nullopt;
}

}  // namespace vexo::session
