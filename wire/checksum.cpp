#include "wire/checksum.h"

#include <cstddef>
#include <cstring>

namespace vexo::wire {
namespace {

// Two 64-bit words, which every x86-64 processor adds at once.
using Pair = uint64_t __attribute__((vector_size(16)));

template <typename Word>
Word load(const uint8_t* bytes) {
    Word word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

constexpr size_t kBlockSize = 2 * sizeof(Pair);

// The sum of the 32-bit words of `blocks` blocks: wider words give the same one's complement sum.
// `all` adds the 64-bit words as they are, dropping carries; `high` adds their upper halves, from
// which the exact sum of the lower halves follows. Two of each, so that additions overlap.
uint64_t sum_of_blocks(const uint8_t* bytes, size_t blocks) {
    Pair all[2]{};
    Pair high[2]{};
#pragma GCC unroll 4  // the loop itself would cost a third
    for (const uint8_t* const end = bytes + blocks * kBlockSize; bytes != end;
         bytes += kBlockSize) {
        const Pair first = load<Pair>(bytes);
        const Pair second = load<Pair>(bytes + sizeof(Pair));
        all[0] += first;
        all[1] += second;
        high[0] += first >> 32;
        high[1] += second >> 32;
    }
    const Pair all_sums = all[0] + all[1];
    const Pair high_sums = high[0] + high[1];
    const uint64_t uppers = high_sums[0] + high_sums[1];
    const uint64_t lowers = all_sums[0] + all_sums[1] - (uppers << 32);
    return lowers + uppers;
}

uint64_t sum_of_rest(const uint8_t* bytes, size_t size) {
    uint64_t sum = 0;
    for (; size >= 4; size -= 4, bytes += 4) {
        sum += load<uint32_t>(bytes);
    }
    if (size >= 2) {
        sum += load<uint16_t>(bytes);
        size -= 2;
        bytes += 2;
    }
    return size == 0 ? sum : sum + *bytes;
}

// One's complement addition of the parts: carries go back in at the bottom.
uint16_t fold(uint64_t sum) {
    sum = (sum >> 32) + (sum & 0xFFFFFFFF);
    sum = (sum >> 32) + (sum & 0xFFFFFFFF);
    sum = (sum >> 16) + (sum & 0xFFFF);
    sum = (sum >> 16) + (sum & 0xFFFF);
    return static_cast<uint16_t>(sum);
}

}  // namespace

uint16_t internet_checksum(std::span<const uint8_t> data) {
    const size_t blocks = data.size() / kBlockSize;
    const auto rest = data.subspan(blocks * kBlockSize);
    const uint64_t sum = sum_of_blocks(data.data(), blocks) + sum_of_rest(rest.data(), rest.size());
    return static_cast<uint16_t>(~fold(sum));
}

}  // namespace vexo::wire
