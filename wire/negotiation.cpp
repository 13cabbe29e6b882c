#include "wire/negotiation.h"

#include <algorithm>

namespace vexo::wire {

uint64_t version_word(int64_t mode, bool nack) {
    const auto word = static_cast<uint64_t>(mode);
    if (!asks_for_frames(mode)) {
        return word;
    }
    return word | kVersionRaw | (nack ? kVersionNack : 0);
}

MessageWriter negotiation_request(std::span<uint8_t> buffer, uint64_t word, const MacBytes& host) {
    MessageWriter message(buffer, Letter::negotiation);
    message.u64(word);
    if ((word & kVersionRaw) != 0) {
        message.bytes(host);
    }
    return message;
}

MacBytes controller_mac(std::span<const uint8_t> reply) {
    MacBytes mac{};
    std::ranges::copy(reply_payload(reply).bytes(mac.size()), mac.begin());
    return mac;
}

}  // namespace vexo::wire
