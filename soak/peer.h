// The controllers of a soak run, in a process of their own.
#ifndef SOAK_PEER_H
#define SOAK_PEER_H

#include <sys/types.h>

#include <string>

#include "soak/records.h"

namespace soak {

class Peer {
public:
    // Starts the controllers on 127.0.0.1 and the addresses behind it, with raw frames on
    // `interface`. To be called before the process has threads.
    explicit Peer(const std::string& interface);
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    static std::string address(size_t controller);

    const PeerRecord& record() const { return *record_; }
    // Ends the controllers; the record is complete then.
    void stop();

private:
    PeerRecord* record_;
    pid_t process_ = -1;
    int stop_ = -1;  // the process ends when this pipe is closed
};

}  // namespace soak

#endif
