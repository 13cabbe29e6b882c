// The thread that serves one controller's ports, its connections and the beat of its packages.
#ifndef SIM_SERVER_H
#define SIM_SERVER_H

#include <poll.h>

#include <atomic>
#include <deque>
#include <thread>

#include "sim/connection.h"
#include "sim/outages.h"
#include "sim/raw_link.h"

namespace sim {

class Server {
public:
    Server(const Options& options, Controller& controller);
    ~Server();
    void stop();
    // Has the thread look for faults of the controller that are due.
    void wake();

private:
    struct Listener {
        Port port;
        Descriptor socket;  // none while the port is refused
    };

    void run();
    void serve();
    void serve_raw(bool readable);
    void serve_connection(Connection& connection, bool ready);
    bool beat();
    bool stream(const Outgoing& package);
    void poll_descriptors();
    void wait();
    Clock::time_point next_event() const;
    bool polls(const Connection& connection) const;
    void accept_on(const Listener& listener);
    void befall();
    void disconnect(const Fault& fault);
    void tend_listeners();
    void forget_ended();

    Controller& controller_;
    const std::string address_;
    std::vector<Listener> listeners_;
    std::optional<RawLink> raw_;
    Descriptor wake_;

    // The serving thread's own.
    std::deque<Connection> connections_;  // oldest first
    bool in_session_ = false;
    Outages outages_;
    Clock::time_point now_{};  // of this pass
    std::vector<pollfd> polled_;
    bool streaming_ = false;
    Clock::time_point next_beat_{};
    Outgoing package_;

    std::atomic<bool> stopping_ = false;

    std::thread thread_;
};

}  // namespace sim

#endif
