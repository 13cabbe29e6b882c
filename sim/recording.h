// A recording as `vexo record` writes it, to be replayed.
#ifndef SIM_RECORDING_H
#define SIM_RECORDING_H

#include <memory>

#include "sim/replay.h"
#include "tools/mcap/recipe.h"

namespace mcap {
class Reader;
}

namespace sim {

class Recording : public Replay {
public:
    // Throws std::exception with a text that tells what is wrong with the file.
    explicit Recording(const std::string& path);
    ~Recording() override;

    // That of the controller, as JSON; empty when it is not in the file.
    std::string catalogue() const;

    const std::vector<Variable>& variables() const override { return variables_; }
    void rewind() override { position_ = 0; }
    BytesView next() override;
    Clock::duration interval() const override;

private:
    struct Package {
        uint64_t time;
        BytesView data;
    };

    std::unique_ptr<mcap::Reader> reader_;
    mcap::Recipe recipe_;
    std::vector<Variable> variables_;
    std::vector<Package> packages_;
    size_t position_ = 0;
    Bytes values_;
};

}  // namespace sim

#endif
