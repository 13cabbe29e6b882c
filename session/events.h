// What has happened to a session, for whoever wants to know. Guarded by the session's monitor.
#ifndef SESSION_EVENTS_H
#define SESSION_EVENTS_H

#include <string>
#include <vector>

#include "session/session.h"
#include "session/time.h"

namespace vexo::session {

class Events {
public:
    static constexpr size_t kKept = 256;

    Events() : kept_(kKept) {}

    // Attempts that fail one after another lead to and fro: they would push out what matters.
    void state(uint32_t from, uint32_t to);
    void span(uint32_t kind, Nanoseconds span);
    void count(uint32_t kind, uint64_t count);
    void error(uint32_t kind, const VexoSessionError& error, uint64_t count);

    // The number of the latest.
    uint64_t newest() const { return newest_; }
    // The first behind `position`; there must be one.
    VexoSessionEvent after(uint64_t position) const;

private:
    // A VexoSessionEvent in less room. It has texts only where there are some, so that counting
    // lost packages allocates nothing.
    struct Event {
        uint32_t kind = 0;
        uint64_t number = 0;
        Nanoseconds realtime = 0;
        Nanoseconds monotonic = 0;
        uint32_t state = 0;
        uint32_t previous = 0;
        Nanoseconds span = 0;
        uint64_t count = 1;
        int32_t code = 0;
        int32_t status = 0;
        int32_t system = 0;
        std::string cause;
        std::string remedy;
    };
    Event& add(uint32_t kind);
    bool tells_of(uint32_t from, uint32_t to) const;

    std::vector<Event> kept_;
    uint64_t newest_ = 0;
};

// Lets the same failure be told once a second.
class Repetition {
public:
    // Whether it is to be told now. Then `count` receives how often it came since it was last told.
    bool tell(const VexoSessionError& error, Nanoseconds now, uint64_t& count);

private:
    std::string cause_;
    Nanoseconds told_ = 0;
    uint64_t held_back_ = 0;
};

}  // namespace vexo::session

#endif
