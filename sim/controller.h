// The controller behind the ports, without any socket.
//
// A monitor: every member function takes the lock, so the serving thread and the threads of a test
// use one object.
#ifndef SIM_CONTROLLER_H
#define SIM_CONTROLLER_H

#include <condition_variable>
#include <functional>
#include <mutex>

#include "sim/clock.h"
#include "sim/exchange.h"
#include "sim/fault_book.h"
#include "sim/replay.h"

namespace sim {

// A message on its way out, and what befalls it.
struct Outgoing {
    Bytes message;
    std::optional<Fault> fault;
};

class Controller {
public:
    explicit Controller(const Options& options);

    // For the serving thread.
    void offer_raw_path(const MacAddress& own);
    void connected();
    // Forgets what the client before has negotiated and set up.
    void reset_session();
    bool streaming() const;
    // The client's address while the raw path is in use.
    std::optional<MacAddress> raw_client() const;
    // Carries a request out. Nothing when it is one that gets no reply.
    std::optional<Outgoing> answer(Port port, BytesView message);
    // A request that is not carried out.
    void overhear(Port port, BytesView message);
    // The time from one package to the next by the host's clock.
    Clock::duration period() const;
    // Lets one cycle pass and fills in its output package.
    void next_package(Outgoing& out);
    void package_done(bool sent);
    void frame_rejected();

    // Faults of the controller itself that are due: the serving thread does with its sockets what
    // they ask for, then has the rest carried out here.
    std::optional<Fault> due_fault();
    Clock::time_point next_due() const;
    void carry_out(const Fault& fault);
    // Nobody waits for faults any more.
    void stop();

    // For inspection and tests. Waits until a fault of the controller that is due has happened.
    void inject(Fault fault);
    void clear_faults();
    bool set_output(const std::string& name, const Bytes& value);
    Bytes input(const std::string& name) const;
    void wait_for_faults() const;
    // What a look at the arm as it is now returns.
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
    // What clients are told that the controller is.
    struct Identity {
        std::shared_ptr<const Catalogue> catalogue;
        Versions versions;
    };
    // What stands on an identity.
    struct Service {
        Service(const Identity& as, Arm& arm, Records& records, const Replay* replay);

        std::shared_ptr<const Catalogue> catalogue;
        Variables variables;
        Exchange exchange;
        std::vector<Slot*> replayed;  // in the order of the replay's variables
    };
    struct Timing {
        double period;      // s from package to package, by the controller's clock
        double speed = 1;   // of the controller's clock against the host's
        double jitter = 0;  // s
        std::minstd_rand random{};
    };

    void catch_up();
    void replay_package();
    void begin_session();
    void begin_service();
    void restart();
    void disturb_clock(const Fault& fault);
    void dispatch(Target target, size_t& total, Outgoing& out);
    Session& session() { return service_->exchange.session; }
    const Session& session() const { return service_->exchange.session; }

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    const std::shared_ptr<Replay> replay_;
    const Timing rated_;
    Timing timing_;
    Clock::time_point caught_up_;
    Arm arm_;
    Records records_;
    std::optional<MacAddress> own_mac_;
    Identity identity_;
    bool renewed_ = false;  // the identity is that of the next session, not of this one
    std::unique_ptr<Service> service_;
    std::shared_ptr<const Catalogue> latest_;  // what faults still to come have made of it
    FaultBook faults_;
    bool carrying_out_ = false;
    bool stopped_ = false;
};

}  // namespace sim

#endif
