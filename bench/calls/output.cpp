// Reading the latest package while packages arrive.
#include <pthread.h>

#include <cstring>

#include "bench/calls/calls.h"
#include "bench/session.h"

namespace bench {

namespace {

uint32_t streaming_handle() {
    static const uint32_t handle = [] {
        const uint32_t made =
            open_session(start_peer({.number = 200, .package_size = kLargestPackage}), 2);
        start_output(made);
        return made;
    }();
    return handle;
}

void library(benchmark::State& state) {
    const uint32_t handle = streaming_handle();
    uint8_t package[kLargestPackage];
    for (auto _ : state) {
        vexo_ouput_data_receive(handle, 0, package, sizeof package);
        benchmark::ClobberMemory();
    }
}

// Beside the same stream.
void limit(benchmark::State& state) {
    streaming_handle();
    static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    static uint8_t latest[kLargestPackage];
    uint8_t package[kLargestPackage];
    for (auto _ : state) {
        pthread_mutex_lock(&mutex);
        std::memcpy(package, latest, sizeof package);
        benchmark::DoNotOptimize(package);
        pthread_mutex_unlock(&mutex);
        benchmark::ClobberMemory();
    }
}

}  // namespace

std::vector<CallPair> output_calls() {
    return {{"vexo_ouput_data_receive, 1440 bytes", library, limit, 1.5}};
}

}  // namespace bench
