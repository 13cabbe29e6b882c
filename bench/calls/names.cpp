#include <cstring>
#include <random>
#include <string_view>
#include <unordered_map>

#include "bench/calls/calls.h"
#include "bench/machine.h"
#include "bench/peer.h"
#include "client/vexo.h"

namespace bench {

namespace {

constexpr uint32_t kNames = 2000;

// Names in the order of their rows, and in another order for the look-ups.
struct Names {
    std::vector<std::string> in_order;
    std::vector<std::string> shuffled;
    std::string list;  // shuffled, with commas

    Names() {
        for (uint32_t row = 0; row < kNames; ++row) {
            in_order.push_back(output_name(row));
        }
        shuffled = in_order;
        std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(1));
        for (const std::string& name : shuffled) {
            list += (list.empty() ? "" : ",") + name;
        }
    }
};

const Names& names() {
    static const Names all;
    return all;
}

uint32_t indexed_handle() {
    static const uint32_t handle = [] {
        struct Row {
            char name[100];
            char rest[8];
        };
        std::vector<Row> rows(kNames);
        for (uint32_t row = 0; row < kNames; ++row) {
            names().in_order[row].copy(rows[row].name, sizeof rows[row].name);
        }
        uint32_t made = 0;
        require(vexo_create_handle(&made, "127.0.0.1") == 0, "no handle");
        require(build_output_hash(made, kNames, rows.data()) == 0, "no index");
        return made;
    }();
    return handle;
}

using Map = std::unordered_map<std::string_view, int32_t>;

const Map& map() {
    static const Map rows = [] {
        Map made;
        for (uint32_t row = 0; row < kNames; ++row) {
            made.emplace(names().in_order[row], static_cast<int32_t>(row));
        }
        return made;
    }();
    return rows;
}

int32_t look_up(std::string_view name) {
    const auto found = map().find(name);
    return found != map().end() ? found->second : -1;
}

void find_library(benchmark::State& state) {
    const uint32_t handle = indexed_handle();
    size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(find_output_index(handle, names().shuffled[next].c_str()));
        next = (next + 1) % kNames;
    }
}

// The name comes as a C string here, too.
void find_limit(benchmark::State& state) {
    size_t next = 0;
    for (auto _ : state) {
        const char* name = names().shuffled[next].c_str();
        benchmark::DoNotOptimize(name);
        benchmark::DoNotOptimize(look_up(name));
        next = (next + 1) % kNames;
    }
}

void multi_find_library(benchmark::State& state) {
    const uint32_t handle = indexed_handle();
    std::vector<int32_t> results(kNames);
    for (auto _ : state) {
        multi_find(handle, names().list.c_str(), VEXO_FIND_OUTPUT, results.data());
        benchmark::ClobberMemory();
    }
}

void multi_find_limit(benchmark::State& state) {
    std::vector<int32_t> results(kNames);
    for (auto _ : state) {
        const char* list = names().list.c_str();
        benchmark::DoNotOptimize(list);
        int32_t* result = results.data();
        for (;;) {
            const char* comma = std::strchr(list, ',');
            if (comma == nullptr) {
                *result = look_up(list);
                break;
            }
            *result++ = look_up({list, static_cast<size_t>(comma - list)});
            list = comma + 1;
        }
        benchmark::ClobberMemory();
    }
}

}  // namespace

std::vector<CallPair> name_calls() {
    return {{"find_output_index over 2000 names", find_library, find_limit, 1.2},
            {"multi_find of 2000 names", multi_find_library, multi_find_limit, 1.5}};
}

}  // namespace bench
