// One attempt to connect: the I/O port first, since it begins the controller's session, then the
// others together.
#ifndef SESSION_ATTEMPT_H
#define SESSION_ATTEMPT_H

#include "session/io_thread.h"
#include "session/link.h"

namespace vexo::session {

class Attempt {
public:
    struct Links {
        Ref<Link> io;
        Ref<Link> control;
        Ref<Link> receive;  // not on the raw path
    };
    class Owner {
    public:
        virtual void connected(Links links) = 0;
        virtual void not_connected(const VexoSessionError& error) = 0;

    protected:
        ~Owner() = default;
    };

    Attempt(IoThread& io, Owner& owner) : io_(io), owner_(owner) {}

    void begin(const in_addr& address, bool with_receive);
    // Gives it up. What was connected so far is closed.
    void abandon();
    bool running() const { return static_cast<bool>(links_.io); }
    // Which port is waited for.
    uint16_t waiting_for() const;

private:
    struct Port final : IoHandler {
        Attempt* attempt = nullptr;
        Ref<Link> link;
        bool pending = false;
        void ready(uint32_t) override { attempt->settled(*this); }
    };

    bool open(Port& port, uint16_t number);
    void settled(Port& port);
    void fail(const VexoSessionError& error);
    void close(Port& port);

    IoThread& io_;
    Owner& owner_;
    in_addr address_{};
    bool with_receive_ = false;
    Links links_;
    Port ports_[3];
};

}  // namespace vexo::session

#endif
