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
    // Lets one cycle pass and fills in its output package.
    void next_package(Outgoing& out);
    void package_done(bool sent);
    void frame_rejected();

    // For inspection and tests.
    void inject(const Fault& fault);
    void clear_faults();
    bool set_output(const std::string& name, const Bytes& value);
    Bytes input(const std::string& name) const;
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
    void catch_up();

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    const Catalogue catalogue_;
    const double period_;  // s
    Clock::time_point caught_up_;
    Arm arm_;
    Variables variables_;
    Records records_;
    Exchange exchange_;
    FaultBook faults_;
};

}  // namespace sim

#endif
