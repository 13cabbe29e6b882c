// Packets that --capture names, and what the decoder makes of them.
#ifndef TOOLS_VEXO_CAPTURE_READER_H
#define TOOLS_VEXO_CAPTURE_READER_H

#include "tools/capture/decoder.h"
#include "tools/capture/packet_source.h"
#include "tools/vexo/source.h"

namespace tool {

// Adds --catalogue and --recipe, for streams whose set-up is not captured.
void add_capture_options(Command& command, Options& options);

class CaptureReader {
public:
    // Throws a Failure when there is no such interface or file, or what the user knows of the
    // stream makes no sense.
    CaptureReader(const Options& options, capture::Robot::TakeRow take);

    // Takes what is there; on an interface waits for it until then. False: a file is at its end.
    bool read(TimePoint until);

    bool live() const { return packets_.live(); }
    const capture::Decoder& decoder() const { return decoder_; }
    // What befell the packets, and was made good or not; empty when nothing did.
    std::string mishaps() const;

private:
    capture::PacketSource packets_;
    capture::Decoder decoder_;
    bool ended_ = false;
};

// Rows of the catalogues that pass by: all of a file, or those that come over an interface for
// --timeout at most.
std::vector<VexoSessionVariable> captured_catalogue(const Options& options);

}  // namespace tool

#endif
