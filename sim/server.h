// The thread that serves one controller's ports, its connections and the beat of its packages.
#ifndef SIM_SERVER_H
#define SIM_SERVER_H

#include <poll.h>

#include <deque>
#include <thread>

#include "sim/connection.h"
#include "sim/raw_link.h"

namespace sim {

class Server {
public:
    Server(const Options& options, Controller& controller);
    ~Server();
    void stop();
    void disconnect(Port port, Break how);

private:
    struct Listener {
        Port port;
        Descriptor socket;
    };
    struct Disconnect {
        Port port;
        Break how;
    };

    void run();
    void serve();
    void serve_raw(bool readable);
    void serve_connection(Connection& connection, bool ready);
    void beat(Clock::time_point now);
    bool stream(const Outgoing& package);
    void wait();
    Clock::time_point next_event() const;
    void accept_on(const Listener& listener);
    void carry_out_disconnects();
    void forget_ended();
    void wake();

    Controller& controller_;
    const Clock::duration period_;
    std::vector<Listener> listeners_;
    std::optional<RawLink> raw_;
    Descriptor wake_;

    // The serving thread's own.
    std::deque<Connection> connections_;  // oldest first
    std::vector<pollfd> polled_;
    bool streaming_ = false;
    Clock::time_point next_beat_{};
    Outgoing package_;

    // Orders from other threads.
    std::mutex orders_mutex_;
    std::vector<Disconnect> disconnects_;
    bool stopping_ = false;

    std::thread thread_;
};

}  // namespace sim

#endif
