#include "tools/vexo/live.h"

#include <poll.h>

#include <algorithm>
#include <ctime>

#include "tools/vexo/capture_source.h"
#include "tools/vexo/interrupt.h"

namespace tool {
namespace {

using std::chrono::steady_clock;

constexpr uint32_t kBatch = 256;
constexpr auto kNewsPeriod = std::chrono::milliseconds(100);

int64_t monotonic_ns() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * int64_t{1'000'000'000} + now.tv_nsec;
}

std::string seconds_text(int64_t span_ns) {
    char text[40];
    std::snprintf(text, sizeof text, "%.3f s", static_cast<double>(span_ns) * 1e-9);
    return text;
}

// Why no package came. A cause that the session met says more than its silence.
Failure silence_of(VexoSession* session, std::chrono::microseconds patience) {
    const VexoSessionStatus status = status_of(session);
    auto counts = sized<VexoSessionStatistics>();
    checked(vexo_session_statistics(session, &counts));
    if (status.error.code != VEXO_SESSION_OK && status.error.code != VEXO_SESSION_SILENT) {
        return failure_of(status.error);
    }
    if (counts.packages == 0 && counts.foreign > 0) {
        return Failure(Exit::unreachable, "silent",
                       "packages come, and none of them is of the recipe asked for",
                       "see that no other program has set up recipes with this controller");
    }
    return Failure(Exit::unreachable, "silent",
                   "the controller is connected, and has streamed nothing for " +
                       seconds_text(patience.count() * 1000),
                   "see whether it is paused or busy, or give it longer with --timeout");
}

}  // namespace

bool has_output(VexoSession* session, const char* name) {
    auto entry = sized<VexoSessionVariable>();
    return vexo_session_find(session, VEXO_SESSION_OUTPUT, name, &entry) == VEXO_SESSION_OK;
}

VexoSessionStream* open_stream(VexoSession* session, std::vector<std::string> names,
                               VexoSessionStreamOptions options, int64_t limit_us) {
    require_names(session, VEXO_SESSION_OUTPUT | VEXO_SESSION_INPUT, names);
    if (has_output(session, kCounterName)) {
        options.counter_variable = kCounterName;
        if (std::find(names.begin(), names.end(), kCounterName) == names.end()) {
            names.emplace_back(kCounterName);
        }
    }
    std::vector<const char*> texts;
    for (const std::string& name : names) {
        texts.push_back(name.c_str());
    }
    VexoSessionStream* stream = nullptr;
    interruptible(session, [&] {
        return vexo_session_stream_open(session, texts.data(), static_cast<uint32_t>(texts.size()),
                                        &options, limit_us, &stream);
    });
    return stream;
}

void Reporter::tell_news() {
    auto event = sized<VexoSessionEvent>();
    while (vexo_session_next_event(session_, &position_, &event, 0) == VEXO_SESSION_OK) {
        if (event.kind == VEXO_SESSION_EVENT_CUT) {
            output_.note(std::string("cut: ") + event.error.cause);
        } else if (event.kind == VEXO_SESSION_EVENT_BACK) {
            output_.note("back after " + seconds_text(event.span_ns));
        } else if (event.kind == VEXO_SESSION_EVENT_STATE) {
            output_.detail(std::string("state: ") + vexo_session_state_name(event.state));
        } else if (event.kind == VEXO_SESSION_EVENT_ERROR) {
            output_.detail(event.error.cause);
        }
    }
}

LiveSource::LiveSource(Context& context, Session session, const std::vector<std::string>& names,
                       Purpose purpose)
    : session_(std::move(session)),
      reporter_(session_.get(), context.output),
      patience_(limit_us(context)) {
    auto wanted = sized<VexoSessionStreamOptions>();
    std::vector<std::string> all = names;
    if (purpose == Purpose::measure && has_output(session_.get(), kTimeName)) {
        wanted.time_variable = kTimeName;
        all.emplace_back(kTimeName);
    }
    VexoSessionStream* stream = open_stream(session_.get(), all, wanted, limit_us(context));
    auto layout = sized<VexoSessionLayout>();
    checked(vexo_session_stream_layout(stream, &layout));
    record_size_ = layout.record_size;
    records_.resize(kBatch * record_size_ / sizeof(uint64_t));
    fields_.resize(names.size(), sized<VexoSessionVariable>());
    for (uint32_t i = 0; i < fields_.size(); ++i) {
        checked(vexo_session_stream_field(stream, i, &fields_[i]));
    }
    auto options = sized<VexoSessionCursorOptions>();
    options.from_oldest = 1;
    options.cyclic = purpose == Purpose::measure ? 1 : 0;
    checked(vexo_session_cursor_open(stream, &options, &cursor_));
    checked(vexo_session_cursor_descriptor(cursor_, &descriptor_));
}

void LiveSource::fill() {
    uint64_t overwritten = 0;
    taken_ = 0;
    count_ = 0;
    checked(vexo_session_cursor_read(cursor_, records_.data(), kBatch, &count_, &overwritten));
    late_ += overwritten;
    if (count_ > 0) {
        heard_ = steady_clock::now();
    }
}

void LiveSource::wait(TimePoint end) {
    const TimePoint until =
        std::min({end, heard_ + patience_, TimePoint(steady_clock::now() + kNewsPeriod)});
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - steady_clock::now());
    pollfd events[] = {{descriptor_, POLLIN, 0}, {interrupt_descriptor(), POLLIN, 0}};
    poll(events, std::size(events), static_cast<int>(std::max<int64_t>(left.count(), 0)));
    reporter_.tell_news();
    // Tells whether the recipe still means what it meant.
    if (const int32_t result = vexo_session_cursor_wait(cursor_, 0);
        result != VEXO_SESSION_TIMED_OUT) {
        checked(result);
    }
}

std::optional<Row> LiveSource::next(TimePoint end) {
    while (!interrupted()) {
        if (taken_ == count_) {
            fill();
        }
        if (taken_ < count_) {
            const auto* record = reinterpret_cast<const uint8_t*>(records_.data());
            const auto* package =
                reinterpret_cast<const VexoSessionPackage*>(record + taken_++ * record_size_);
            const uint64_t late = std::exchange(late_, 0);
            return Row{package, monotonic_ns() - package->arrival_ns, package->lost + late, late};
        }
        const TimePoint now = steady_clock::now();
        if (now >= end) {
            break;
        }
        if (now >= heard_ + patience_) {
            throw silence_of(session_.get(), patience_);
        }
        wait(end);
    }
    return std::nullopt;
}

std::unique_ptr<Source> open_source(Context& context, const std::vector<std::string>& names) {
    if (!context.options.capture.empty()) {
        return std::make_unique<CaptureSource>(context, names);
    }
    if (!context.options.catalogue.empty() || !context.options.recipe.empty()) {
        throw Failure(Exit::usage, "usage", "--catalogue and --recipe want --capture",
                      "leave them out: the controller tells what its packages hold");
    }
    return std::make_unique<LiveSource>(context, open_session(context), names);
}

}  // namespace tool
