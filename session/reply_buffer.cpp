#include "session/reply_buffer.h"

#include <cstring>

namespace vexo::session {

namespace {

// The shortest reply ends with its status.
constexpr size_t kShortest = wire::kStatusOffset + 1;

}  // namespace

void ReplyBuffer::drop_given() {
    filled_ -= given_;
    std::memmove(bytes_.get(), bytes_.get() + given_, filled_);
    given_ = 0;
}

std::span<const uint8_t> ReplyBuffer::next() {
    const std::span<const uint8_t> left(bytes_.get() + given_, filled_ - given_);
    if (left.size() < sizeof(uint16_t)) {
        return {};
    }
    const size_t length = wire::message_length(left);
    out_of_step_ = out_of_step_ || length < kShortest;
    if (out_of_step_ || left.size() < length) {
        return {};
    }
    given_ += length;
    return left.first(length);
}

}  // namespace vexo::session
