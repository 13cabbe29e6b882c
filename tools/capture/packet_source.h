// Where packets come from: a network interface that is listened to, or a capture file. Nothing is
// ever sent.
#ifndef TOOLS_CAPTURE_PACKET_SOURCE_H
#define TOOLS_CAPTURE_PACKET_SOURCE_H

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>

#include "tools/capture/packet.h"

struct pcap;

namespace capture {

// What stands in the way, and what to do about it: a line each.
struct SourceError : std::runtime_error {
    SourceError(const std::string& cause, std::string what_to_do)
        : std::runtime_error(cause), remedy(std::move(what_to_do)) {}
    std::string remedy;
};

class PacketSource {
public:
    // The name of an interface ("any": all of them), of a file, or "-" for standard input. Throws
    // SourceError.
    explicit PacketSource(const std::string& name);
    ~PacketSource();
    PacketSource(const PacketSource&) = delete;
    PacketSource& operator=(const PacketSource&) = delete;

    // An interface: packets come as they pass by, without an end.
    bool live() const { return live_; }
    // Readable when a packet waits on an interface.
    int descriptor() const;

    enum class Next { packet, nothing, end };
    // Never waits for an interface. The packet's bytes lie there until the next call. Throws
    // SourceError when the interface goes away, or the file is broken from here on.
    Next next(Packet& packet);

    // Packets that passed by an interface faster than they were taken.
    uint64_t dropped() const;

private:
    void open_interface();
    void open_file();

    const std::string name_;
    const bool live_;
    struct Close {
        void operator()(pcap* handle) const;
    };
    std::unique_ptr<pcap, Close> handle_;
};

}  // namespace capture

#endif
