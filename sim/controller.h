// The controller behind the ports: sessions, requests and packages, without any socket.
//
// A monitor: every public member function takes the lock, so the serving thread and the threads of
// a test use one object.
#ifndef SIM_CONTROLLER_H
#define SIM_CONTROLLER_H

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <unordered_map>

#include "sim/arm_signals.h"
#include "sim/commands.h"
#include "sim/fault_book.h"
#include "sim/records.h"

namespace sim {

using Clock = std::chrono::steady_clock;

// A message on its way out, and what befalls it.
struct Outgoing {
    Bytes message;
    std::optional<Fault> fault;
};

class Controller {
public:
    explicit Controller(const Options& options);

    // For the serving thread. ---------------------------------------------------------------

    // Makes the raw path available to clients that ask for it.
    void offer_raw_path(const MacAddress& own);
    void connected();
    void begin_session();
    void end_session();
    bool streaming() const;
    // The client's address while the raw path is in use.
    std::optional<MacAddress> raw_client() const;
    // Carries a request out. Nothing when it is one that gets no reply.
    std::optional<Outgoing> answer(Port port, BytesView message);
    // Lets one cycle pass and fills in its output package.
    void next_package(Outgoing& out);
    void package_done(bool sent);

    // For inspection and tests. -------------------------------------------------------------

    void inject(const Fault& fault);
    void clear_faults();
    bool set_output(const std::string& name, const Bytes& value);
    Bytes input(const std::string& name) const;
    // A look at the arm as it is now; what the look returns.
    template <typename Look>
    auto with_arm(Look look) {
        const std::lock_guard lock(mutex_);
        catch_up();
        return look(arm_);
    }
    template <typename Look>
    auto with_records(Look look) const {
        const std::lock_guard lock(mutex_);
        return look(records_);
    }
    // Waits until the records satisfy the condition.
    bool wait(const std::function<bool(const Records&)>& condition,
              std::chrono::milliseconds limit) const;

private:
    // A variable of the catalogue: shown by the arm, or held here.
    struct Slot {
        const Variable* variable;
        const Signal* signal;
        Bytes held;
    };
    struct MethodSlot {
        const Method* method;
        const Command* command;  // null: accepted without effect, or the servo-joint command
    };
    struct Recipe {
        uint8_t id = 0;
        size_t length = 0;  // of the values
        std::vector<Slot*> slots;
    };
    struct Session {
        uint32_t version = 0;
        bool nack = false;
        std::optional<MacAddress> raw_client;
        bool streaming = false;
        Recipe output;
        std::map<uint8_t, Recipe> inputs;
        uint8_t last_recipe_id = 0;
    };

    void catch_up();
    std::string_view method_name(BytesView message) const;
    Status dispatch(Port port, BytesView message, Bytes& reply);
    Status dispatch_io(char letter, Reader& in, Writer& payload);
    Status negotiate(Reader& in, Writer& payload);
    Status variables_page(const std::vector<Variable>& list, Reader& in, Writer& payload) const;
    Status methods_page(Reader& in, Writer& payload) const;
    Status set_up_output(Reader& in, Writer& payload);
    Status set_up_input(Reader& in, Writer& payload);
    Status start(Reader& in);
    Status pause(Reader& in);
    Status versions(Reader& in, Writer& payload) const;
    Status take_input(Port port, Reader& in);
    Status call(Port port, Reader& in, Writer& payload);
    Status servo(Port port, const std::vector<Argument>& arguments);
    size_t page_size() const { return session_.version > 1 ? 200 : 10; }
    Slot* find_slot(uint32_t id, bool inputs_only);
    bool read_recipe(Reader& in, bool inputs_only, Recipe& recipe);
    uint8_t next_recipe_id();

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    const Catalogue catalogue_;
    const Versions versions_;
    const double period_;  // s
    Arm arm_;
    Clock::time_point arm_time_;  // until when the arm has been advanced, unless it is streaming
    FaultBook faults_;
    Records records_;
    std::vector<Slot> outputs_;
    std::vector<Slot> inputs_;
    std::unordered_map<uint32_t, Slot*> outputs_by_id_;
    std::unordered_map<uint32_t, Slot*> inputs_by_id_;
    std::unordered_map<uint16_t, MethodSlot> methods_by_id_;
    std::optional<MacAddress> own_mac_;
    Session session_;
};

}  // namespace sim

#endif
