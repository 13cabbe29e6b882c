// Requests and replies over the I/O connection, one request at a time.
#ifndef SESSION_DIALOGUE_H
#define SESSION_DIALOGUE_H

#include <vector>

#include "session/io_thread.h"
#include "session/link.h"
#include "session/reply_buffer.h"
#include "session/statistics.h"

namespace vexo::session {

// A reply belongs to a request by its letter and its order. One that nobody waits for any longer is
// owed: when it comes late it is dropped. When it cannot be told whose a reply was, the connection
// is given up.
class Dialogue final : IoHandler {
public:
    class Owner {
    public:
        virtual void replied(std::span<const uint8_t> reply, Nanoseconds round_trip) = 0;
        virtual void dialogue_failed(const VexoSessionError& error) = 0;

    protected:
        ~Owner() = default;
    };

    Dialogue(IoThread& io, Statistics& statistics, Owner& owner)
        : io_(io), statistics_(statistics), owner_(owner) {}

    void begin(Ref<Link> link);
    void end();

    bool busy() const { return waiting_for_ != 0; }
    Nanoseconds asked_at() const { return asked_at_; }
    // The controller has said something.
    Nanoseconds heard_at() const { return heard_at_; }

    // Sends a request. False: the connection is gone, and the owner knows.
    bool ask(std::span<const uint8_t> message);
    // Nobody waits for the reply any longer.
    void drop_reply();

private:
    void ready(uint32_t events) override;
    void take_replies();
    bool take(std::span<const uint8_t> reply);
    void fail(const VexoSessionError& error);

    IoThread& io_;
    Statistics& statistics_;
    Owner& owner_;
    Ref<Link> link_;
    ReplyBuffer replies_;
    uint8_t waiting_for_ = 0;  // the letter of the reply
    bool doubtful_ = false;    // a reply with that letter was taken for one that was owed
    Nanoseconds asked_at_ = 0;
    Nanoseconds heard_at_ = 0;
    std::vector<uint8_t> owed_;  // letters, in the order of the requests
};

}  // namespace vexo::session

#endif
