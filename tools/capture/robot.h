// One controller and its client, as the wire shows them.
#ifndef TOOLS_CAPTURE_ROBOT_H
#define TOOLS_CAPTURE_ROBOT_H

#include <optional>
#include <string>

#include "tools/capture/connection.h"
#include "tools/capture/dialogue.h"
#include "tools/capture/packages.h"

namespace capture {

// Of all controllers together.
struct Counters : PackageCounters, SegmentCounters {
    uint64_t repeated_frames = 0;  // came twice, or behind later ones
    uint64_t bad_frames = 0;       // checksum or lengths are wrong
};

// A package of a controller.
struct Row {
    const std::string& controller;  // its IPv4 address; else that of its station, as "02:00:…"
    const std::shared_ptr<const Layout>& layout;  // the same as long as it does not change
    uint8_t recipe;
    int64_t time_ns;  // when the capture had all of it, since the epoch
    uint64_t number;  // 1, 2, … of this controller
    uint64_t lost;    // packages directly before it
    Bytes values;     // as the layout says
};

class Robot {
public:
    using TakeRow = std::function<void(const Row&)>;
    struct Context {
        const Known& known;
        const std::string& counter;  // name of a variable that counts packages; may be empty
        Counters& counters;
        TakeRow take;
    };

    // `station` is called with the address that the controller's frames will come from.
    Robot(
        std::string name, const Context& context,
        std::function<void(const MacBytes&)> station = [](const MacBytes&) {});
    Robot(const Robot&) = delete;
    Robot& operator=(const Robot&) = delete;

    void take(const Segment& segment, uint16_t port, bool from_controller, int64_t time_ns);
    void take_frame(std::vector<uint8_t> frame, int64_t time_ns);
    void finish(int64_t time_ns);

    const std::string& name() const { return name_; }
    const Catalogue& catalogue() const { return recipes_.catalogue(); }

private:
    // Of bytes that tell nothing.
    struct Nothing : ByteSink {
        void bytes(Bytes, int64_t) override {}
        void gap(size_t) override {}
    };

    void begin_session();
    bool in_order(uint16_t sequence);
    void show(const Package& package);
    uint64_t gap_of_counter(const Package& package);

    const std::string name_;
    const Context& context_;
    Recipes recipes_;
    Dialogue dialogue_;
    Packages packages_;
    Nothing nothing_;
    Connection io_;
    Connection stream_;
    std::optional<uint16_t> last_sequence_;  // of frames
    uint64_t lost_frames_ = 0;               // since the last package that was shown
    std::optional<uint64_t> last_count_;     // of the counter
    uint64_t number_ = 0;
};

}  // namespace capture

#endif
