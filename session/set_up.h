// What a connection begins with, one request after the other: version, the controller's own
// version, the three lists, then the recipes that the application wants.
#ifndef SESSION_SET_UP_H
#define SESSION_SET_UP_H

#include <memory>

#include "session/catalogue_reader.h"
#include "session/recipe_set_up.h"

namespace vexo::session {

class SetUp {
public:
    static constexpr size_t kLongestMessage = 65535;

    SetUp(Robot& robot, Receiver& receiver);

    // A connection begins.
    void begin(Ref<Connection> connection, Ref<RawPort> stream_port);
    void end();

    // The controller has answered over this connection.
    bool answered() const { return step_ != Step::version; }

    // The next request; empty when all stands that is wanted.
    std::span<const uint8_t> next();
    // The reply to it. What is wrong with it, when that ends the connection.
    std::optional<VexoSessionError> take(std::span<const uint8_t> reply);

    // Where requests are built; the one that is being made lies there.
    std::span<uint8_t> buffer() const { return {buffer_.get(), kLongestMessage}; }

private:
    enum class Step { version, controller, lists, recipes };

    std::optional<VexoSessionError> take_version(std::span<const uint8_t> reply);
    void take_controller(std::span<const uint8_t> reply);
    std::optional<VexoSessionError> take_page(std::span<const uint8_t> reply);

    Robot& robot_;
    Ref<Connection> connection_;
    Ref<RawPort> stream_port_;
    Step step_ = Step::version;
    CatalogueReader lists_;
    RecipeSetUp recipes_;
    std::unique_ptr<uint8_t[]> buffer_;
};

}  // namespace vexo::session

#endif
