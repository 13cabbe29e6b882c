// Watches the library's receive thread from the inside: when it waits, when it is woken, and every
// package that it stores. The program links with --wrap for poll and recv.
#ifndef SOAK_PROBE_H
#define SOAK_PROBE_H

#include "soak/records.h"

namespace soak {

// How the packages of one handle came to the store. Written by the receive thread.
struct Arrivals {
    std::array<Stored, kRemembered> packages;
    std::atomic<uint32_t> first;
    std::atomic<uint32_t> newest;
    std::atomic<uint64_t> stored;
    std::atomic<uint64_t> lost;  // passed over by a later one
    std::atomic<uint64_t> doubled;
    std::atomic<uint64_t> out_of_order;
    std::atomic<uint64_t> altered;  // not as it was sent, or another controller's

    // Null unless this package has come and is still remembered.
    const Stored* find(uint32_t counter) const {
        const Stored& package = packages[counter % kRemembered];
        return package.counter.load(std::memory_order_acquire) == counter ? &package : nullptr;
    }
};

// Begins to watch: the handles in the order of their controllers.
void watch(const std::array<uint32_t, kHandles>& handles, const PeerRecord& peer);

const Arrivals& arrivals(size_t controller);

}  // namespace soak

#endif
