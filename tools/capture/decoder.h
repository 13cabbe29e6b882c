// Values of streams that others hold, out of the packets that pass by: over TCP and in raw frames.
// Pure functions of bytes: no input and output, no threads, and nothing is trusted that a packet
// says.
//
// A decoder is fed with packets in the order in which they were captured, and calls back for each
// package of values that it can name. Names and types come from the catalogue and the set-up of the
// recipe, when the capture has them; else from what the user knows.
#ifndef TOOLS_CAPTURE_DECODER_H
#define TOOLS_CAPTURE_DECODER_H

#include <map>

#include "tools/capture/robot.h"

namespace capture {

struct Options {
    std::optional<uint32_t> controller;  // IPv4 address in host order: this one alone
    Known known;
    std::string counter;  // name of a variable that counts packages; may be empty
};

class Decoder {
public:
    Decoder(Options options, Robot::TakeRow take);
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    void take(const Packet& packet);
    // The last packet was taken: what waits for something before it is shown now.
    void finish();

    const Counters& counters() const { return counters_; }
    // What the controllers publish, as far as it was seen, by their names.
    std::vector<std::pair<std::string, Catalogue>> catalogues() const;

private:
    void take_segment(const Segment& segment, int64_t time_ns);
    void take_frame(RawFrame frame, int64_t time_ns);
    Robot* robot_at(uint32_t address);
    Robot* robot_of(const MacBytes& station);

    const Options options_;
    Counters counters_;
    Counters counters_of_others_;
    const Robot::Context context_;
    const Robot::Context others_;            // of controllers that are not wanted
    std::map<uint32_t, Robot> robots_;       // by IPv4 address
    std::map<MacBytes, Robot> unknown_;      // whose address is not known, by station
    std::map<MacBytes, uint32_t> stations_;  // of those at an address
    int64_t time_ns_ = 0;                    // of the last packet
};

}  // namespace capture

#endif
