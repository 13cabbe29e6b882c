#include <cstring>

#include "bench/calls/calls.h"
#include "net/raw_socket.h"

namespace bench {

namespace {

struct Buffers {
    alignas(64) uint16_t from[750] = {};
    alignas(64) uint16_t to[750] = {};
};

void library(benchmark::State& state) {
    Buffers buffers;
    for (auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(
            socket_raw_ip_cksum(buffers.from, static_cast<int>(state.range(0))));
    }
}

void limit(benchmark::State& state) {
    Buffers buffers;
    auto size = static_cast<size_t>(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(size);
        std::memcpy(buffers.to, buffers.from, size);
        benchmark::DoNotOptimize(buffers.to);
        benchmark::ClobberMemory();
    }
}

}  // namespace

std::vector<CallPair> checksum_calls() {
    std::vector<CallPair> pairs;
    for (const int64_t size : {64, 512, 1500}) {
        pairs.push_back(
            {"checksum of " + std::to_string(size) + " bytes", library, limit, 6, size});
    }
    return pairs;
}

}  // namespace bench
