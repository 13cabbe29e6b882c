// The exchange with a client: carries out its requests on the arm and the variables. It knows
// neither sockets nor locks nor faults.
#ifndef SIM_EXCHANGE_H
#define SIM_EXCHANGE_H

#include <map>
#include <optional>
#include <unordered_map>

#include "sim/commands.h"
#include "sim/records.h"
#include "sim/variables.h"

namespace sim {

inline constexpr size_t kReplyHeaderSize = 7;

// From the connection of a client to its leaving.
struct Session {
    uint32_t version = 0;
    bool nack = false;  // set-points that come in frames are not acknowledged
    std::optional<MacAddress> raw_client;
    bool streaming = false;
    Recipe output;
    std::map<uint8_t, Recipe> inputs;
    uint8_t last_recipe_id = 0;
    size_t replied = 0;   // bytes of all replies
    size_t streamed = 0;  // bytes of all packages since the start
};

class Exchange {
public:
    Exchange(const Catalogue& catalogue, const Versions& versions, Arm& arm, Variables& variables,
             Records& records);

    // Carries a request out and appends the payload of its reply.
    Status carry_out(Port port, BytesView message, Bytes& reply);
    // The name of the method that the message calls; empty when it calls none.
    std::string_view method_name(BytesView message) const;

    // Makes the raw path available to clients that ask for it.
    void offer_raw_path(const MacAddress& own) { own_mac_ = own; }

    Session session;

private:
    struct MethodEntry {
        const Method* method;
        const Command* command;  // null: accepted without effect, or the servo-joint command
    };

    Status dispatch(char letter, Reader& in, Writer& payload);
    Status negotiate(Reader& in, Writer& payload);
    template <typename Entry>
    Status page(const std::vector<Entry>& list, Reader& in, Writer& payload) const;
    std::optional<Recipe> read_recipe(Reader& in, Variables::Choice choice, Status& status);
    Status set_up_output(Reader& in, Writer& payload);
    Status set_up_input(Reader& in, Writer& payload);
    Status start();
    Status pause();
    Status versions(Writer& payload) const;
    Status take_input(Port port, Reader& in);
    Status call(Port port, Reader& in, Writer& payload);
    Status run(const MethodEntry& entry, Port port, const std::vector<Argument>& arguments,
               Writer& payload);
    Status servo(Port port, const std::vector<Argument>& arguments);

    const Catalogue& catalogue_;
    const Versions versions_;
    std::optional<MacAddress> own_mac_;
    Arm& arm_;
    Variables& variables_;
    Records& records_;
    std::unordered_map<uint16_t, MethodEntry> methods_;
};

}  // namespace sim

#endif
