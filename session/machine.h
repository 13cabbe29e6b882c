// The I/O thread's part of a session: its way through the states.
//
//   waiting -> attempt_ -> dialogue_ with the set-up's requests -> standing -> (a cut) -> waiting
//
// Everything here runs on the I/O thread. It takes the session's monitor for changes that callers
// wait for, never for a package.
#ifndef SESSION_MACHINE_H
#define SESSION_MACHINE_H

#include "session/attempt.h"
#include "session/caller_requests.h"
#include "session/dialogue.h"
#include "session/receiver.h"
#include "session/retry.h"
#include "session/set_up.h"

namespace vexo::session {

class Machine final : Attempt::Owner, Dialogue::Owner, Receiver::Owner {
public:
    explicit Machine(Robot& robot);

    // A caller has changed what the session shall do.
    void woken();
    // A time has come.
    void due();
    bool ended() const { return ended_; }

private:
    void connected(Attempt::Links links) override;
    void not_connected(const VexoSessionError& error) override { cut(error); }
    void replied(std::span<const uint8_t> reply, Nanoseconds round_trip) override;
    void dialogue_failed(const VexoSessionError& error) override { cut(error); }
    void receiver_failed(const VexoSessionError& error) override { cut(error); }
    void packages_lost() override;

    void begin_attempt();
    VexoSessionError prepare(const Attempt::Links& links);
    void proceed();
    void look_after_callers();
    void stand();
    void ping();

    void cut(const VexoSessionError& cause);
    void drop_everything(bool finish);
    void end();
    void plan();
    void check_limits(Nanoseconds now);
    void tell_lost(Nanoseconds now);
    Nanoseconds stream_limit() const;
    Nanoseconds reply_deadline() const;

    // The end of the control connection, which callers use by themselves.
    struct ControlWatch final : IoHandler {
        Machine* machine = nullptr;
        void ready(uint32_t) override;
    };

    Robot& robot_;
    IoThread& io_;
    Attempt attempt_;
    Dialogue dialogue_;
    Receiver receiver_;
    SetUp set_up_;
    CallerRequests caller_requests_;
    Retry retry_;
    ControlWatch control_watch_;
    Ref<Connection> connection_;
    Ref<Feed> feed_;

    enum class Asked { nothing, set_up, caller, ping };
    Asked asked_ = Asked::nothing;
    bool standing_ = false;  // everything was set up
    bool ended_ = false;
    bool was_cut_ = false;        // it stood before
    Nanoseconds round_trip_ = 0;  // of the last request
    uint32_t last_number_ = 0;    // of the connections that are told apart
    uint64_t lost_told_ = 0;
    Nanoseconds tell_lost_at_ = kNever;
};

}  // namespace vexo::session

#endif
