// Receives output packages, over TCP or in raw frames, and stores them in the stream's ring. By the
// I/O thread. The way of a package takes no lock and allocates nothing.
#ifndef SESSION_RECEIVER_H
#define SESSION_RECEIVER_H

#include <sys/socket.h>

#include "session/package_reader.h"
#include "session/punctuality.h"
#include "session/raw_port.h"
#include "session/stream.h"

namespace vexo::session {

class Receiver final : IoHandler {
public:
    class Owner {
    public:
        virtual void receiver_failed(const VexoSessionError& error) = 0;
        virtual void packages_lost() = 0;

    protected:
        ~Owner() = default;
    };

    Receiver(IoThread& io, Statistics& statistics, Owner& owner);

    // Receives from now on; until expect() everything is dropped.
    bool begin(Ref<Link> link);
    bool begin(Ref<RawPort> port);
    // Stores the packages of this recipe.
    void expect(Ref<Stream> stream, uint8_t recipe, uint32_t connection);
    void expect_nothing();
    void end();

    bool receiving() const { return static_cast<bool>(stream_); }
    // A package has come since it was expected.
    bool heard() const { return receiving() && heard_; }
    // Of the latest package, or when it was first expected.
    Nanoseconds heard_at() const { return heard_at_; }
    // How long it may be silent, by its period.
    Nanoseconds patience() const;
    // Asks the kernel for frames that it had no room for.
    void count_drops();

private:
    struct Arrival {
        Nanoseconds realtime;
        bool stamped;
    };
    void ready(uint32_t events) override;
    void receive_bytes();
    void receive_frames();
    void take_frame(std::span<uint8_t> frame, const Arrival& arrival);
    bool in_order(uint16_t sequence);
    Arrival arrival_of(msghdr& message) const;
    void store(std::span<const uint8_t> values, const Arrival& arrival);
    uint32_t missing_before(std::span<const uint8_t> values);
    uint32_t gap_of_counter(std::span<const uint8_t> values);
    static const uint8_t* place_of(const VexoSessionVariable& field,
                                   std::span<const uint8_t> values);
    void count(const VexoSessionPackage& package, std::span<const uint8_t> values);

    IoThread& io_;
    Statistics& statistics_;
    Owner& owner_;
    Ref<Link> link_;
    Ref<RawPort> port_;
    Ref<Stream> stream_;
    uint8_t recipe_ = 0;
    uint32_t connection_ = 0;
    PackageReader reader_;
    Punctuality punctuality_;
    Nanoseconds heard_at_ = 0;
    bool heard_ = false;  // a package, since expect()
    Nanoseconds last_arrival_ = 0;
    int32_t last_sequence_ = -1;   // of the controller's frames
    uint32_t frames_missing_ = 0;  // before the frame that is taken now
    uint64_t last_counter_ = 0;
    uint64_t beat_ = 0;
};

}  // namespace vexo::session

#endif
