// What the three sides of a soak run know of each package: the peer that sent it, the receive
// thread that stored it, and the reader.
#ifndef SOAK_RECORDS_H
#define SOAK_RECORDS_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>

namespace soak {

using Nanoseconds = int64_t;

constexpr size_t kHandles = 10;
constexpr size_t kTcpHandles = 5;  // the others use raw frames: at most 8 per process
constexpr Nanoseconds kMillisecond = 1'000'000;
constexpr Nanoseconds kSecond = 1'000'000'000;
constexpr size_t kRemembered = 2048;  // packages of a handle: two seconds of them

inline Nanoseconds time_of(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return now.tv_sec * kSecond + now.tv_nsec;
}

// The clock of all stamps, since it is the kernel's for received packets.
inline Nanoseconds now() {
    return time_of(CLOCK_REALTIME);
}

// The part of a package that says which one it is; the rest of it is filling.
struct Package {
    static constexpr size_t kHeader = 4;

    uint32_t counter;
    uint32_t controller;     // 0 to kHandles - 1
    double controller_time;  // s

    static Package read(const uint8_t* bytes) {
        Package package{};
        std::memcpy(&package, bytes + kHeader, sizeof package);
        return package;
    }
};
static_assert(sizeof(Package) == 16);

// FNV-1a.
inline uint64_t hash(const uint8_t* bytes, size_t size) {
    uint64_t value = 14695981039346656037U;
    for (size_t i = 0; i < size; ++i) {
        value = (value ^ bytes[i]) * 1099511628211U;
    }
    return value;
}

// Written by the peer just before it sends a package.
struct Sent {
    std::atomic<uint32_t> counter;
    std::atomic<Nanoseconds> at;
    std::atomic<uint64_t> hash;
};

// Written by the receive thread when it has stored a package.
struct Stored {
    std::atomic<uint32_t> counter;
    double controller_time;
    Nanoseconds in_kernel;  // the network stack had received it
    Nanoseconds at;
    Nanoseconds busy;  // processor time that the receive thread has spent since in_kernel, at most
};

struct PeerRecord {
    std::array<std::array<Sent, kRemembered>, kHandles> sent;
    std::array<std::atomic<uint64_t>, kHandles> packages;
    std::array<std::atomic<uint64_t>, kHandles> dropped;
};

}  // namespace soak

#endif
