// One line into the log, from one and from several threads at once.
#include "log/log.h"

#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include "bench/calls/calls.h"

namespace bench {

namespace {

constexpr char kText[] = "vexo_output_setup_send Error: output_vars_num(233) < request_varnum(240)";

void library(benchmark::State& state) {
    if (state.thread_index() == 0) {
        log_init();
    }
    for (auto _ : state) {
        log_write(0, "vexo_output_setup_send", kText);
    }
    if (state.thread_index() == 0) {
        log_cleanup();
    }
}

// As many lines wait at most; when more come, some are discarded; each is flushed.
std::shared_ptr<spdlog::logger> make_logger() {
    constexpr size_t kWaitingLines = 31;
    spdlog::init_thread_pool(kWaitingLines, 1);
    auto logger = std::make_shared<spdlog::async_logger>(
        "bench", std::make_shared<spdlog::sinks::basic_file_sink_st>("spdlog_log", true),
        spdlog::thread_pool(), spdlog::async_overflow_policy::overrun_oldest);
    logger->set_pattern("Function:vexo_output_setup_send Handle:0 Time:%Y-%m-%d %H:%M:%S.%f %v");
    logger->flush_on(spdlog::level::trace);
    return logger;
}

void limit(benchmark::State& state) {
    static std::shared_ptr<spdlog::logger> logger;
    if (state.thread_index() == 0) {
        logger = make_logger();
    }
    for (auto _ : state) {
        logger->info(kText);
    }
    if (state.thread_index() == 0) {
        logger.reset();
        spdlog::shutdown();
    }
}

}  // namespace

std::vector<CallPair> log_calls() {
    return {{"log_write, one thread", library, limit, 1.0},
            {"log_write, four threads", library, limit, 1.0, 0, 4}};
}

}  // namespace bench
