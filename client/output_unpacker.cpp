#include "client/output_unpacker.h"

#include <algorithm>
#include <cstring>

#include "client/dataspace.h"
#include "client/message.h"

namespace vexo {

namespace {

constexpr size_t kPackageHeader = 4;

}  // namespace

size_t OutputUnpacker::wanted(size_t length) const {
    if (passing_ > 0) {
        return std::min(passing_, sizeof bytes_ - filled_);
    }
    const size_t limit = std::min(length, sizeof bytes_);
    return limit > filled_ ? limit - filled_ : 0;
}

void OutputUnpacker::received(size_t count) {
    if (passing_ > 0) {
        passing_ -= count;
    } else {
        filled_ += count;
    }
}

size_t OutputUnpacker::next(size_t length) {
    drop_shown();
    const size_t limit = std::min(length, sizeof bytes_);
    if (limit == 0 || passing_ > 0 || filled_ < sizeof(uint16_t)) {
        return 0;
    }
    size_t size = read_u16(bytes_);
    if (size < kPackageHeader || size > kBufferSize) {
        size = limit;
    }
    shown_ = std::min(size, limit);
    if (shown_ > filled_) {
        shown_ = 0;
    } else {
        const size_t here = std::min(size, filled_);
        passing_ = size - here;
        filled_ -= here - shown_;
        std::memmove(bytes_ + shown_, bytes_ + here, filled_ - shown_);
    }
    return shown_;
}

void OutputUnpacker::drop_shown() {
    filled_ -= shown_;
    std::memmove(bytes_, bytes_ + shown_, filled_);
    shown_ = 0;
}

}  // namespace vexo
