// Takes packages of values out of the byte stream of a TCP connection, from wherever the capture
// begins.
#ifndef TOOLS_CAPTURE_PACKAGES_H
#define TOOLS_CAPTURE_PACKAGES_H

#include <functional>

#include "tools/capture/reassembly.h"
#include "tools/capture/recipes.h"
#include "wire/package.h"

namespace capture {

struct PackageCounters {
    uint64_t packages = 0;   // shown
    uint64_t lost = 0;       // passed by unseen, or never sent, as far as can be told
    uint64_t unnamed = 0;    // of recipes that are not known
    uint64_t malformed = 0;  // whose length is not their recipe's
};

// A package of a recipe that is known.
struct Package {
    uint8_t recipe = 0;
    std::shared_ptr<const Layout> layout;
    Bytes values;
    int64_t time_ns = 0;
    uint64_t lost = 0;  // directly before it
};
using TakePackage = std::function<void(const Package&)>;

// Whether a package that says this can be one: of its recipe's length, where that is known.
bool fits(const vexo::wire::PackageHeader& header, const Recipes& recipes);

class Packages : public ByteSink {
public:
    Packages(const Recipes& recipes, PackageCounters& counters, TakePackage take)
        : recipes_(recipes), counters_(counters), take_(std::move(take)) {}

    // A new connection, whose first byte begins a package.
    void begin();
    void bytes(Bytes bytes, int64_t time_ns) override;
    void gap(size_t count) override;

private:
    Bytes waiting() const { return Bytes(buffer_).subspan(taken_); }
    bool step(int64_t time_ns);
    bool find_step();
    bool begins_at(size_t position, bool& undecided) const;
    void show(size_t length, int64_t time_ns);

    const Recipes& recipes_;
    PackageCounters& counters_;
    TakePackage take_;
    std::vector<uint8_t> buffer_;
    size_t taken_ = 0;      // of the buffer
    bool in_step_ = false;  // a package begins at the front
    size_t length_ = 0;     // of the last package
    size_t skip_ = 0;       // bytes to come of a package whose begin is missing
    uint64_t lost_ = 0;     // since the last package that was shown
};

}  // namespace capture

#endif
