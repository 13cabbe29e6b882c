#include "tools/vexo/measurement.h"

#include <sched.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>

#include "tools/plot/percentile_plot.h"
#include "tools/vexo/values.h"

namespace tool {
namespace {

constexpr double kLimitShare = 0.999;  // so many packages have to keep to the limit

double rounded(double microseconds) {
    return std::round(microseconds * 1000) / 1000;
}

Json percentiles_of(const Series& series) {
    return {{"p50", rounded(quantile(series, 0.5))},
            {"p99", rounded(quantile(series, 0.99))},
            {"p99_9", rounded(quantile(series, 0.999))},
            {"max", rounded(quantile(series, 1))}};
}

std::string key_of(uint32_t cause) {
    std::string key = vexo_session_cause_name(cause);
    std::replace_if(
        key.begin(), key.end(), [](char each) { return each == '-' || each == ' '; }, '_');
    return key;
}

const char* remedy_of(uint32_t cause) {
    switch (cause) {
        case VEXO_SESSION_CAUSE_PEER:
            return "see how busy the controller is";
        case VEXO_SESSION_CAUSE_WIRE:
            return "see cable, switches, and other traffic on the way";
        case VEXO_SESSION_CAUSE_WAKE_UP:
        case VEXO_SESSION_CAUSE_LIBRARY:
            return "run at a real-time priority (chrt -f 80); `vexo doctor` tells what else";
        case VEXO_SESSION_CAUSE_READER:
            return "run at a real-time priority (chrt -f 80), on a processor of its own";
        default:
            return "stream the controller's time to tell which, if it has one";
    }
}

Failure bad_file(const std::string& file) {
    return Failure(Exit::failed, "bad_file", file + ": " + std::strerror(errno),
                   "see whether the path is right and may be used");
}

std::string percent(double fraction) {
    return number_text(fraction * 100) + " %";
}

}  // namespace

double quantile(Series series, double fraction) {
    if (series.empty()) {
        return 0;
    }
    const double place = std::ceil(fraction * static_cast<double>(series.size())) - 1;
    const auto nth = series.begin() + static_cast<ptrdiff_t>(std::max(place, 0.0));
    std::nth_element(series.begin(), nth, series.end());
    return *nth;
}

void run_as_caller() {
    sched_param parameters{};
    auto options = sized<VexoSessionThreadOptions>();
    options.policy = sched_getscheduler(0) & ~SCHED_RESET_ON_FORK;
    sched_getparam(0, &parameters);
    options.priority = parameters.sched_priority;
    if (options.policy == SCHED_FIFO || options.policy == SCHED_RR) {
        checked(vexo_session_io_thread(&options));
    }
}

void Measurement::add(const Row& row) {
    const VexoSessionPackage& package = *row.package;
    const bool other = packages_ > 0 && package.connection != connection_;
    if (packages_ > 0 && !other && row.lost == 0) {
        intervals_.push_back(static_cast<double>(package.arrival_ns - arrival_ns_) / 1e3);
    }
    cuts_ += other ? 1 : 0;
    lost_ += row.lost;
    ++packages_;
    connection_ = package.connection;
    arrival_ns_ = package.arrival_ns;
    ages_.push_back(static_cast<double>(row.age_ns) / 1e3);
    wake_ups_.push_back(static_cast<double>(package.stored_ns - package.arrival_ns) / 1e3);
}

void Measurement::judge_series(const char* what, const Series& series, double limit) {
    const double reached = quantile(series, kLimitShare);
    if (reached > limit) {
        add_cause(std::string(what) + ": " + percent(kLimitShare) + " keep to " +
                  number_text(rounded(reached)) + " us, and " + number_text(rounded(limit)) +
                  " us is the limit");
    }
}

void Measurement::judge(VexoSession* session, double limit_us) {
    checked(vexo_session_statistics(session, &counts_));
    const double period = quantile(intervals_, 0.5);
    const double limit = limit_us > 0 ? limit_us : period / 2;
    if (packages_ == 0) {
        add_cause("no package came");
    }
    if (lost_ > 0) {
        add_cause(counted(lost_, "package") + " lost");
    }
    if (cuts_ > 0) {
        add_cause("cut " + counted(cuts_, "time"));
    }
    const size_t before = causes_.size();
    judge_series("interval", intervals_, period + limit);
    judge_series("age", ages_, limit);
    if (causes_.size() == before) {
        return;
    }
    for (uint32_t cause = 0; cause < VEXO_SESSION_CAUSES; ++cause) {
        if (counts_.late[cause] > 0) {
            add_cause(counted(counts_.late[cause], "package") + " late by " +
                      vexo_session_cause_name(cause) + ": " + remedy_of(cause));
        }
    }
}

void Measurement::draw(const std::string& file) const {
    if (!plot::plot_percentiles(file, std::to_string(packages_) + " packages", "us",
                                {{"interval", intervals_},
                                 {"age", ages_},
                                 {"wake-up", wake_ups_},
                                 {"round trip", round_trips_}})) {
        throw bad_file(file);
    }
}

Json Measurement::document() const {
    Json late = Json::object();
    for (uint32_t cause = 0; cause < VEXO_SESSION_CAUSES; ++cause) {
        if (cause != VEXO_SESSION_CAUSE_PEER_OR_WIRE || counts_.late[cause] > 0) {
            late[key_of(cause)] = counts_.late[cause];
        }
    }
    return {{"packages", packages_},
            {"lost", lost_},
            {"interval_us", percentiles_of(intervals_)},
            {"age_us", percentiles_of(ages_)},
            {"wake_up_us", percentiles_of(wake_ups_)},
            {"round_trip_us", percentiles_of(round_trips_)},
            {"late", late},
            {"verdict", causes_.empty() ? "pass" : "fail"},
            {"causes", causes_}};
}

void Measurement::print(Output& output) const {
    const Json result = document();
    output.text(counted(packages_, "package") + ", " + std::to_string(lost_) + " lost\n");
    output.text("us                 p50        p99      p99.9        max\n");
    for (const auto& [key, label] : {std::pair("interval_us", "interval"),
                                     {"age_us", "age"},
                                     {"wake_up_us", "wake-up"},
                                     {"round_trip_us", "round trip"}}) {
        const Json& row = result[key];
        char line[80];
        std::snprintf(line, sizeof line, "%-11s %10.1f %10.1f %10.1f %10.1f\n", label,
                      row["p50"].get<double>(), row["p99"].get<double>(),
                      row["p99_9"].get<double>(), row["max"].get<double>());
        output.text(line);
    }
    std::string late = "late by";
    for (const auto& [cause, count] : result["late"].items()) {
        late += ' ' + cause + ' ' + count.dump();
    }
    output.text(late + '\n');
    for (const std::string& cause : causes_) {
        output.text(cause + '\n');
    }
    const bool pass = causes_.empty();
    output.text(output.painted(pass ? Paint::good : Paint::bad, pass ? "pass" : "fail") + '\n');
}

Exit Measurement::report(Output& output) const {
    if (output.json()) {
        output.document(document());
    } else {
        print(output);
    }
    return causes_.empty() ? Exit::done : Exit::incomplete;
}

std::string Measurement::progress() const {
    return counted(packages_, "package") + ", " + std::to_string(lost_) + " lost";
}

void require_writable(const std::string& file) {
    errno = 0;
    if (!std::ofstream(file, std::ios::app)) {
        throw bad_file(file);
    }
}

}  // namespace tool
