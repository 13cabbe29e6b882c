// What a connection begins with, one request after the other: version, the controller's own
// version, the three lists, then the recipes that the application wants.
#ifndef SESSION_SET_UP_H
#define SESSION_SET_UP_H

#include <memory>
#include <optional>

#include "session/robot.h"

namespace vexo::session {

class Receiver;

class SetUp {
public:
    static constexpr size_t kLongestMessage = 65535;

    SetUp(Robot& robot, Receiver& receiver);

    // A connection begins.
    void begin(Ref<Connection> connection, Ref<RawPort> stream_port);
    void end();

    // The next request; empty when all stands that is wanted.
    std::span<const uint8_t> next();
    // The reply to it. What is wrong with it, when that ends the connection.
    std::optional<VexoSessionError> take(std::span<const uint8_t> reply);

    // Where requests are built; the one that is being made lies there.
    std::span<uint8_t> buffer() const { return {buffer_.get(), kLongestMessage}; }

private:
    enum class Step { version, controller, outputs, inputs, methods, recipes };
    enum class Asked { nothing, output, start, pause, input };

    std::optional<VexoSessionError> take_version(std::span<const uint8_t> reply);
    std::optional<VexoSessionError> take_controller(std::span<const uint8_t> reply);
    std::optional<VexoSessionError> take_page(std::span<const uint8_t> reply);
    template <typename Page>
    bool add_rows(std::span<const uint8_t> reply, uint32_t kind, uint32_t& count);
    void lists_complete();
    wire::Letter list_letter() const;

    std::span<const uint8_t> next_recipe();
    std::span<const uint8_t> ask_output();
    std::span<const uint8_t> ask_input(Inputs& inputs);
    std::optional<VexoSessionError> take_recipe(std::span<const uint8_t> reply);
    std::optional<VexoSessionError> take_output(std::span<const uint8_t> reply);
    std::optional<VexoSessionError> take_start(std::span<const uint8_t> reply);
    std::optional<VexoSessionError> take_input(std::span<const uint8_t> reply);
    void take_pause(std::span<const uint8_t> reply);

    Robot& robot_;
    Receiver& receiver_;
    std::unique_ptr<uint8_t[]> buffer_;
    Ref<Connection> connection_;
    Ref<RawPort> stream_port_;
    Step step_ = Step::version;
    Asked asked_ = Asked::nothing;
    Ref<Catalogue> reading_;
    uint32_t first_ = 0;        // of the page that is read
    uint32_t empty_pages_ = 0;  // at the beginning of a list
    Ref<Stream> stream_;        // that the controller has the recipe of
    uint8_t recipe_ = 0;
    bool started_ = false;
    Ref<Inputs> input_;  // that was asked for
};

}  // namespace vexo::session

#endif
