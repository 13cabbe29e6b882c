#include "session/histogram.h"

#include <bit>
#include <cmath>

namespace vexo::session {

namespace {

// Eight buckets of 128 ns each up to 1024 ns, then eight for each octave.
constexpr unsigned kFirstOctave = 10;
constexpr uint32_t kPerOctave = 8;

constexpr uint32_t bucket_of(uint64_t span) {
    if (span < uint64_t{1} << kFirstOctave) {
        return static_cast<uint32_t>(span >> (kFirstOctave - 3));
    }
    const auto octave = static_cast<unsigned>(std::bit_width(span)) - 1;
    const auto eighth = static_cast<uint32_t>(span >> (octave - 3)) % kPerOctave;
    return std::min<uint32_t>((octave - kFirstOctave + 1) * kPerOctave + eighth,
                              VEXO_SESSION_BUCKETS - 1);
}

constexpr uint64_t limit_of(uint32_t bucket) {
    if (bucket + 1 >= VEXO_SESSION_BUCKETS) {
        return UINT64_MAX;
    }
    if (bucket < kPerOctave) {
        return uint64_t{bucket + 1} << (kFirstOctave - 3);
    }
    const unsigned octave = bucket / kPerOctave - 1 + kFirstOctave;
    return (uint64_t{1} << octave) + (uint64_t{bucket % kPerOctave + 1} << (octave - 3));
}

static_assert(bucket_of(limit_of(100) - 1) == 100 && bucket_of(limit_of(100)) == 101);
static_assert(bucket_of(limit_of(7) - 1) == 7 && bucket_of(limit_of(7)) == 8);

}  // namespace

void Histogram::add(Nanoseconds span) {
    constexpr auto kRelaxed = std::memory_order_relaxed;
    const auto value = static_cast<uint64_t>(std::max<Nanoseconds>(span, 0));
    buckets_[bucket_of(value)].fetch_add(1, kRelaxed);
    sum_.fetch_add(value, kRelaxed);
    uint64_t seen = most_.load(kRelaxed);
    while (value > seen && !most_.compare_exchange_weak(seen, value, kRelaxed)) {
    }
    seen = least_.load(kRelaxed);
    while (value < seen && !least_.compare_exchange_weak(seen, value, kRelaxed)) {
    }
}

VexoSessionHistogram Histogram::read() const {
    VexoSessionHistogram histogram{};
    for (size_t i = 0; i < buckets_.size(); ++i) {
        histogram.buckets[i] = buckets_[i].load(std::memory_order_relaxed);
        histogram.count += histogram.buckets[i];
    }
    histogram.sum_ns = sum_.load(std::memory_order_relaxed);
    histogram.most_ns = most_.load(std::memory_order_relaxed);
    histogram.least_ns = histogram.count > 0 ? least_.load(std::memory_order_relaxed) : 0;
    return histogram;
}

}  // namespace vexo::session

using namespace vexo::session;

extern "C" uint64_t vexo_session_bucket_ns(uint32_t index) {
    return limit_of(index);
}

extern "C" uint64_t vexo_session_percentile_ns(const VexoSessionHistogram* histogram,
                                               double fraction) {
    if (histogram == nullptr || histogram->count == 0) {
        return 0;
    }
    const double share = std::clamp(fraction, 0.0, 1.0);
    const auto wanted =
        static_cast<uint64_t>(std::ceil(share * static_cast<double>(histogram->count)));
    uint64_t seen = 0;
    for (uint32_t i = 0; i < VEXO_SESSION_BUCKETS; ++i) {
        seen += histogram->buckets[i];
        if (seen >= wanted) {
            return std::clamp(limit_of(i), histogram->least_ns, histogram->most_ns);
        }
    }
    return histogram->most_ns;
}
