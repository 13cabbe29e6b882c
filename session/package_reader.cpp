#include "session/package_reader.h"

#include <cstring>

namespace vexo::session {

std::span<uint8_t> PackageReader::room() {
    filled_ -= taken_;
    std::memmove(bytes_.get(), bytes_.get() + taken_, filled_);
    taken_ = 0;
    return {bytes_.get() + filled_, kRoom - filled_};
}

bool PackageReader::ours_at(size_t position) const {
    const wire::PackageHeader header = wire::package_header(left().subspan(position));
    return header.plausible() && header.recipe == recipe_ && header.length == length_;
}

PackageReader::Found PackageReader::next(std::span<const uint8_t>& values) {
    const std::span<const uint8_t> here = left();
    if (here.size() < wire::kPackageHeader) {
        return Found::nothing;
    }
    const wire::PackageHeader header = wire::package_header(here);
    if (length_ != 0 && header.length == length_ && ours_at(0)) {
        if (here.size() < length_) {
            return Found::nothing;
        }
        values = here.first(length_).subspan(wire::kPackageHeader);
        taken_ += length_;
        return Found::package;
    }
    const bool foreign = header.plausible() && (length_ == 0 || header.recipe != recipe_);
    if (!foreign && here.size() < length_ + wire::kPackageHeader) {
        return Found::nothing;
    }
    if (!foreign && ours_at(length_)) {
        taken_ += length_;
        return Found::malformed;
    }
    if (!header.plausible()) {
        return Found::no_header;
    }
    if (here.size() < header.length) {
        return Found::nothing;
    }
    taken_ += header.length;
    return foreign ? Found::foreign : Found::malformed;
}

}  // namespace vexo::session
