#include "soak/report.h"

#include <algorithm>
#include <cinttypes>
#include <filesystem>
#include <fstream>

namespace soak {

namespace {

constexpr long kMemoryGrowth = 1024;  // KiB that the allocator and the stacks may still take

struct Sums {
    uint64_t stored = 0, lost = 0, doubled = 0, out_of_order = 0, altered = 0;
    uint64_t cycles = 0, torn = 0, backwards = 0, all_late = 0;
    Nanoseconds longest_read = 0;
    std::array<uint64_t, kCauses> late{};
    std::vector<uint64_t> transits;
};

void add(Sums& sums, const Arrivals& arrivals) {
    sums.stored += arrivals.stored;
    sums.lost += arrivals.lost;
    sums.doubled += arrivals.doubled;
    sums.out_of_order += arrivals.out_of_order;
    sums.altered += arrivals.altered;
}

void add(Sums& sums, const Reader& reader) {
    sums.cycles += reader.cycles();
    sums.torn += reader.torn();
    sums.backwards += reader.backwards();
    sums.longest_read = std::max(sums.longest_read, reader.longest_read());
    for (size_t i = 0; i < kCauses; ++i) {
        sums.late[i] += reader.late()[i];
        sums.all_late += reader.late()[i];
    }
    sums.transits.resize(reader.transits().size());
    for (size_t i = 0; i < sums.transits.size(); ++i) {
        sums.transits[i] += reader.transits()[i];
    }
}

// The least time in microseconds that so much of all packages kept to.
size_t percentile(const std::vector<uint64_t>& transits, double fraction) {
    uint64_t all = 0;
    for (const uint64_t count : transits) {
        all += count;
    }
    auto left = static_cast<int64_t>(fraction * static_cast<double>(all));
    size_t i = 0;
    while (i + 1 < transits.size() && (left -= static_cast<int64_t>(transits[i])) > 0) {
        ++i;
    }
    return i;
}

size_t entries(const char* directory) {
    const std::filesystem::directory_iterator begin(directory);
    return static_cast<size_t>(std::distance(begin, std::filesystem::directory_iterator()));
}

void write_late(const Run& run, const std::string& path) {
    std::ofstream file(path);
    file << "controller,package,cause,peer_us,wire_us,wake_up_us,library_us,reader_us\n";
    for (const auto& reader : run.readers) {
        for (const LateCycle& late : reader->late_cycles()) {
            file << late.controller << ',' << late.counter << ',' << cause_name(late.cause);
            for (const VexoSessionCause cause :
                 {VEXO_SESSION_CAUSE_PEER, VEXO_SESSION_CAUSE_WIRE, VEXO_SESSION_CAUSE_WAKE_UP,
                  VEXO_SESSION_CAUSE_LIBRARY, VEXO_SESSION_CAUSE_READER}) {
                file << ',' << late.lateness[cause] / 1000;
            }
            file << '\n';
        }
    }
}

void print_packages(const Run& run, const Sums& s) {
    std::fprintf(stderr,
                 "Packages     %" PRIu64 " stored: %" PRIu64 " lost, %" PRIu64 " doubled, %" PRIu64
                 " out of order, %" PRIu64 " altered\n",
                 s.stored, s.lost, s.doubled, s.out_of_order, s.altered);
    std::fprintf(stderr,
                 "             not sent by the peer %" PRIu64
                 ", frames without room in the kernel's queues %" PRIu64 "\n",
                 run.dropped_by_peer, run.overruns);
    std::fprintf(stderr,
                 "From peer to store   p50 %zu us, p99 %zu us, p99.9 %zu us, at most %zu us\n",
                 percentile(s.transits, 0.5), percentile(s.transits, 0.99),
                 percentile(s.transits, 0.999), percentile(s.transits, 1));
    std::fprintf(stderr,
                 "Reads        %" PRIu64 ": %" PRIu64 " torn, %" PRIu64
                 " backwards; the longest took %" PRId64 " us\n",
                 s.cycles, s.torn, s.backwards, s.longest_read / 1000);
}

void print_late(const Sums& s, const std::string& path) {
    std::fprintf(stderr, "Late cycles  %" PRIu64 " (%.3f %%), each in %s\n", s.all_late,
                 100.0 * static_cast<double>(s.all_late) / static_cast<double>(s.cycles),
                 path.c_str());
    for (uint32_t i = 0; i < kCauses; ++i) {
        if (i != VEXO_SESSION_CAUSE_PEER_OR_WIRE) {  // here it can always be told
            std::fprintf(stderr, "             %8" PRIu64 "  %s\n", s.late[i], cause_name(i));
        }
    }
}

void print_process(const Run& run) {
    std::fprintf(stderr, "Set-points   %" PRIu64 ", %" PRIu64 " refused\n", run.set_points,
                 run.refused);
    std::fprintf(stderr, "Memory       %ld KiB, at the end %ld KiB\n", run.at_start.memory,
                 run.at_end.memory);
    std::fprintf(stderr, "Descriptors  %zu, at the end %zu\n", run.at_start.descriptors,
                 run.at_end.descriptors);
    std::fprintf(stderr, "Threads      %zu, at the end %zu\n", run.at_start.threads,
                 run.at_end.threads);
}

// What the peer did not send and what the kernel dropped is not the library's loss.
bool holds(const Run& run, const Sums& s) {
    return s.cycles > 0 && s.lost <= run.dropped_by_peer + run.overruns && s.doubled == 0 &&
           s.out_of_order == 0 && s.altered == 0 && s.torn == 0 && s.backwards == 0 &&
           run.refused == 0 && run.at_end.memory <= run.at_start.memory + kMemoryGrowth &&
           run.at_end.descriptors <= run.at_start.descriptors &&
           run.at_end.threads <= run.at_start.threads;
}

}  // namespace

Holdings Holdings::now() {
    long pages = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return {resident * 4, entries("/proc/self/fd"), entries("/proc/self/task")};
}

bool report(const Run& run, const std::string& late) {
    Sums sums;
    for (size_t i = 0; i < kHandles; ++i) {
        add(sums, arrivals(i));
        add(sums, *run.readers[i]);
    }
    std::fprintf(stderr,
                 "\n%zu handles over TCP and %zu over raw Ethernet, 1 kHz each, for %.0f s\n",
                 kTcpHandles, kHandles - kTcpHandles, run.seconds);
    print_packages(run, sums);
    print_late(sums, late);
    print_process(run);
    write_late(run, late);
    const bool good = holds(run, sums);
    std::fprintf(stderr, "%s\n",
                 good ? "The library kept its part." : "The library did not keep its part.");
    return good;
}

}  // namespace soak
