// Runs the benches of single calls. Usage: bench_calls [WORDS OF A BENCH'S NAME]
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/calls/calls.h"
#include "bench/machine.h"
#include "bench/result.h"

namespace {

using bench::CallPair;
using bench::Round;

constexpr int kRounds = 11;
constexpr double kSecondsPerRun = 0.05;

// Takes the time per iteration and prints nothing.
class Collector : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            nanoseconds = run.GetAdjustedRealTime();
        }
    }

    double nanoseconds = 0;
};

void add(const char* name, bench::Function function, const CallPair& pair) {
    benchmark::RegisterBenchmark(name, function)
        ->Arg(pair.argument)
        ->Threads(pair.threads)
        ->MinTime(kSecondsPerRun)
        ->UseRealTime()
        ->Unit(benchmark::kNanosecond);
}

Round run(const char* name) {
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector, name);
    return {{collector.nanoseconds}, 0};
}

void run_in_turns(const CallPair& pair) {
    add("library", pair.library, pair);
    add("limit", pair.limit, pair);
    bench::Rounds rounds;
    for (int i = 0; i < kRounds; ++i) {
        rounds.library.push_back(run("library"));
        rounds.limit.push_back(run("limit"));
    }
    bench::add_result(pair.what, "ns", {"per call", bench::p50, pair.bound}, rounds);
}

// In a process of its own, as every pair.
void run_apart(const CallPair& pair) {
    const pid_t process = fork();
    bench::require(process >= 0, "no process");
    if (process == 0) {
        dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
        run_in_turns(pair);
        _exit(0);
    }
    int status = 0;
    waitpid(process, &status, 0);
    bench::require(status == 0, pair.what + " failed");
}

}  // namespace

int main(int argc, char** argv) {
    const std::string only = argc > 1 ? argv[1] : "";
    int no_arguments = 1;
    benchmark::Initialize(&no_arguments, argv);
    for (const auto& pairs :
         {bench::output_calls(), bench::log_calls(), bench::name_calls(), bench::checksum_calls(),
          bench::queue_calls(), bench::semaphore_calls()}) {
        for (const CallPair& pair : pairs) {
            if (pair.what.find(only) != std::string::npos) {
                run_apart(pair);
            }
        }
    }
}
