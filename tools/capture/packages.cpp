#include "tools/capture/packages.h"

#include <algorithm>
#include <utility>

namespace capture {
namespace {

using vexo::wire::kPackageHeader;

// Where the stream is out of step and the recipe not known, longer packages are not looked for:
// values can look like a header.
constexpr size_t kLongestGuess = 2048;

}  // namespace

bool fits(const vexo::wire::PackageHeader& header, const Recipes& recipes) {
    const auto& layout = recipes.layout(header.recipe);
    return header.plausible() &&
           (layout == nullptr || header.length == kPackageHeader + layout->bytes());
}

void Packages::begin() {
    buffer_.clear();
    taken_ = skip_ = length_ = 0;
    lost_ = 0;
    in_step_ = true;
}

void Packages::bytes(Bytes bytes, int64_t time_ns) {
    const size_t skipped = std::min(skip_, bytes.size());
    skip_ -= skipped;
    buffer_.insert(buffer_.end(), bytes.begin() + static_cast<ptrdiff_t>(skipped), bytes.end());
    while (step(time_ns)) {
    }
    buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<ptrdiff_t>(taken_));
    taken_ = 0;
}

// Takes a package, or bytes that are none, from the front. False: more bytes are needed.
bool Packages::step(int64_t time_ns) {
    if (waiting().size() < kPackageHeader) {
        return false;
    }
    if (!in_step_) {
        return find_step();
    }
    const auto header = vexo::wire::package_header(waiting());
    if (!fits(header, recipes_)) {
        ++counters_.malformed;
        ++taken_;
        in_step_ = false;
        return true;
    }
    if (waiting().size() < header.length) {
        return false;
    }
    show(header.length, time_ns);
    return true;
}

bool Packages::find_step() {
    const size_t last = waiting().size() - kPackageHeader;
    for (size_t position = 0; position <= last; ++position) {
        bool undecided = false;
        in_step_ = begins_at(position, undecided);
        if (in_step_ || undecided) {
            taken_ += position;
            return in_step_;
        }
    }
    taken_ += last + 1;
    return false;
}

// Packages of one recipe follow one another: the next header says the same.
bool Packages::begins_at(size_t position, bool& undecided) const {
    const Bytes here = waiting().subspan(position);
    const auto header = vexo::wire::package_header(here);
    const bool known = recipes_.layout(header.recipe) != nullptr;
    if (!fits(header, recipes_) || (!known && header.length > kLongestGuess)) {
        return false;
    }
    if (here.size() < header.length + kPackageHeader) {
        undecided = true;
        return false;
    }
    const auto next = vexo::wire::package_header(here.subspan(header.length));
    return next.length == header.length && next.letter == header.letter &&
           next.recipe == header.recipe;
}

void Packages::show(size_t length, int64_t time_ns) {
    const Bytes package = waiting().first(length);
    const uint8_t recipe = vexo::wire::package_header(package).recipe;
    const auto& layout = recipes_.layout(recipe);
    taken_ += length;
    length_ = length;
    if (layout == nullptr) {
        ++counters_.unnamed;
    } else {
        take_({recipe, layout, package.subspan(kPackageHeader), time_ns,
               std::exchange(lost_, uint64_t{0})});
    }
}

// All packages are taken to be as long as the last one: then it is known how many are missing, in
// part or whole, and where the next one begins.
void Packages::gap(size_t count) {
    const size_t skipped = std::min(skip_, count);
    skip_ -= skipped;
    const size_t missing = buffer_.size() + count - skipped;
    buffer_.clear();
    if (length_ != 0 && count > skipped && (in_step_ || skipped > 0)) {
        const size_t lost = (missing + length_ - 1) / length_;
        skip_ = lost * length_ - missing;
        lost_ += lost;
    }
    in_step_ = false;
}

}  // namespace capture
