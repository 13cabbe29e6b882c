// From one form of a recording to another.
#ifndef TOOLS_VEXO_CONVERT_CONVERT_H
#define TOOLS_VEXO_CONVERT_CONVERT_H

#include "session/session.h"
#include "tools/mcap/reader.h"
#include "tools/mcap/recipe.h"
#include "tools/mcap/writer.h"
#include "tools/vexo/failure.h"

namespace tool {

struct Converted {
    uint64_t packages = 0;
    uint64_t skipped = 0;  // places, lines or packages that could not be taken
};

// The channels of a recording, with their recipes, as one number after the other.
struct Tape {
    explicit Tape(const std::string& path);  // throws a Failure

    mcap::Reader reader;
    mcap::Found found;                         // of the whole file
    std::map<uint16_t, mcap::Recipe> recipes;  // of the channels that vexo made

    // The one channel that has messages of ours, or the one of that topic. Throws a Failure.
    uint16_t channel(const std::string& topic) const;
};

// A recording that is made from something else. Failures to write it are thrown.
class TapeWriter {
public:
    TapeWriter(const std::string& path, mcap::Contents contents);
    void add(const mcap::Message& message);
    void close();

private:
    void check(int error) const;

    const std::string path_;
    mcap::Writer writer_;
    uint64_t chunk_begin_ = 0;
};

// The variables of a recipe, for what shows values; a record is a package's values.
std::vector<VexoSessionVariable> variables_of(const mcap::Recipe& recipe);

Converted tape_to_csv(Tape& tape, const std::string& topic, const std::string& path);
Converted csv_to_tape(const std::string& csv, const std::string& path);
Converted repair_tape(Tape& tape, const std::string& path);
// What passed by on the wire; a channel for each controller and recipe.
Converted capture_to_tape(const std::string& capture, const std::string& path);

}  // namespace tool

#endif
