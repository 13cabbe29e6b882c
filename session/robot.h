// One session: what its callers and the I/O thread share.
//
// Who touches what: the settings never change. The statistics are counters that anybody may read.
// What `monitor` guards, the I/O thread changes at events (a new state, a reply, a cut), never for
// a package; callers wait on it for such changes. `live()` is the present connection for callers
// that send by themselves; it has a mutex of its own, which nobody holds for longer than a copy.
// The machine belongs to the I/O thread alone.
#ifndef SESSION_ROBOT_H
#define SESSION_ROBOT_H

#include <netinet/in.h>

#include <memory>
#include <string>
#include <vector>

#include "session/catalogue.h"
#include "session/control_port.h"
#include "session/events.h"
#include "session/handle_table.h"
#include "session/io_thread.h"
#include "session/request.h"
#include "session/statistics.h"

namespace vexo::session {

class Machine;
class Stream;
class Inputs;
class Feed;

struct Settings {
    std::string address_text;
    in_addr address{};
    uint32_t mode = 2;
    std::string interface;  // empty: TCP
    bool acknowledges = true;
    Nanoseconds attempt = 50 * kMillisecond;
    Nanoseconds reply_limit = kSecond;
    Nanoseconds idle = kSecond;
    Nanoseconds stream_limit = 0;  // 0: by the period
    std::string servo_method = "servoJ";

    bool raw() const { return !interface.empty(); }
};

// What callers need to send something by themselves.
struct Live final : Object {
    Ref<Connection> connection;
    Ref<ControlPort> control;
    Ref<Catalogue> catalogue;
    const Entry* servo_method = nullptr;
};

// What the controller is asked to keep up. Guarded by the monitor.
struct Wanted {
    Ref<Stream> stream;
    Ref<Stream> ending;  // closed, and the controller has not acknowledged that yet
    std::vector<Ref<Inputs>> inputs;
    Ref<Feed> feed;
};

// What vexo_session_status() tells. Guarded by the monitor.
struct Standing {
    uint32_t state = VEXO_SESSION_STATE_WAITING;
    Nanoseconds state_since = monotonic_ns();
    uint32_t connection = 0;
    uint32_t attempts = 0;
    uint32_t revision = 0;
    uint16_t model = 0;
    std::string firmware;
    std::string hardware;
    std::string bootloader;
    wire::MacBytes controller_mac{};
    wire::MacBytes host_mac{};
    Nanoseconds round_trip = 0;
    VexoSessionError error{};
    Nanoseconds error_at = 0;  // realtime
};

class Robot final : public IoTask {
public:
    Robot(Ref<IoThread> io, Settings settings);

    const Ref<IoThread> io;
    const Settings settings;
    Statistics statistics;
    std::atomic<uint32_t> sequence{0};  // of the latest set-point
    std::atomic<bool> closed{false};
    std::atomic<bool> feeding{false};  // a feed is open: its set-points alone go out

    Monitor monitor;
    // Guarded by the monitor.
    Standing standing;
    Events events;
    Ref<Catalogue> catalogue;
    Wanted wanted;
    RequestQueue requests;
    std::vector<Handle> children;
    bool gone = false;  // the I/O thread has let go of it

    // Any thread.
    Ref<Live> live();
    void wake() { io->wake(Ref<IoTask>::share(this)); }
    uint32_t next_sequence();

    // Ends the session. Returns when the I/O thread has let go of it.
    void close();

    // By the I/O thread.
    void set_live(Ref<Live> live);
    // All is set up over this connection, `down` after the cut before it; 0: there was none.
    void stands(const Ref<Connection>& connection, Nanoseconds down);
    // The connection, which stood or was still being set up, is gone. Ends what callers wait for.
    void was_cut(const VexoSessionError& error, bool stood);
    // The session is closed, and nothing of it is left to do.
    void finish();
    void enter(uint32_t state);
    // A catalogue was read. What callers hold of the last one stays theirs.
    void offer(const Ref<Catalogue>& read);
    // Keeps a failure as the latest, and tells of it as an event. The monitor is held.
    void note(uint32_t event_kind, const VexoSessionError& error);

private:
    ~Robot() override;
    void woken() override;
    void due() override;

    Mutex live_mutex_;
    Ref<Live> live_;
    Repetition repetition_;  // guarded by the monitor
    std::unique_ptr<Machine> machine_;
};

// The call on a handle, with its object in its own type. False, and told, when it is closed.
template <typename T>
class CallOn {
public:
    CallOn(const void* handle, HandleKind kind) : call_(reinterpret_cast<Handle>(handle), kind) {}

    explicit operator bool() const { return call_.object() != nullptr; }
    T* operator->() const { return static_cast<T*>(call_.object()); }
    T& operator*() const { return *static_cast<T*>(call_.object()); }

private:
    Call call_;
};

}  // namespace vexo::session

#endif
