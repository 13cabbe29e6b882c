// The client's side of a soak run: ten handles that stream, and set-points for each in turn.
#ifndef SOAK_SESSION_H
#define SOAK_SESSION_H

#include <array>
#include <atomic>
#include <string>
#include <thread>

#include "soak/peer.h"

namespace soak {

class Session {
public:
    // Connects all handles, the raw ones on `interface`, and starts their streams. Throws
    // std::runtime_error.
    Session(const Peer& peer, const std::string& interface);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    const std::array<uint32_t, kHandles>& handles() const { return handles_; }

    void begin_set_points();
    void end_set_points();
    uint64_t set_points() const { return set_points_; }
    uint64_t refused() const { return refused_; }

    // Frames that the kernel had no room for in the queues of the raw sockets. Resets itself.
    uint64_t overruns() const;

private:
    void connect(size_t controller, const std::string& interface);
    void send_set_points();

    std::array<uint32_t, kHandles> handles_{};
    std::atomic<uint64_t> set_points_{0};
    std::atomic<uint64_t> refused_{0};
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

}  // namespace soak

#endif
