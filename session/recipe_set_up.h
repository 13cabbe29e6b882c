// Has the controller keep up the recipes that the application wants: one stream, and inputs.
#ifndef SESSION_RECIPE_SET_UP_H
#define SESSION_RECIPE_SET_UP_H

#include <optional>

#include "session/inputs.h"
#include "session/robot.h"

namespace vexo::session {

class Receiver;

// By the I/O thread. Takes the session's monitor for what callers wait for.
class RecipeSetUp {
public:
    RecipeSetUp(Robot& robot, Receiver& receiver) : robot_(robot), receiver_(receiver) {}

    // A connection begins; no recipe stands on it.
    void begin(Ref<Connection> connection);
    void end();

    // The next request, built in `buffer`; empty when all stands that is wanted.
    std::span<const uint8_t> next(std::span<uint8_t> buffer);
    // The reply to it. What is wrong with it, when that ends the connection.
    std::optional<VexoSessionError> take(std::span<const uint8_t> reply);

private:
    enum class Asked { nothing, output, start, pause, input };

    std::span<const uint8_t> ask_output(std::span<uint8_t> buffer);
    std::span<const uint8_t> ask_input(Inputs& inputs, std::span<uint8_t> buffer);
    std::optional<VexoSessionError> take_output(std::span<const uint8_t> reply);
    std::optional<VexoSessionError> take_start(std::span<const uint8_t> reply);
    std::optional<VexoSessionError> take_input(std::span<const uint8_t> reply);
    void take_pause(std::span<const uint8_t> reply);

    Robot& robot_;
    Receiver& receiver_;
    Ref<Connection> connection_;
    Asked asked_ = Asked::nothing;
    Ref<Stream> stream_;  // that the controller has the recipe of
    bool started_ = false;
    Ref<Inputs> input_;  // that was asked for
};

}  // namespace vexo::session

#endif
