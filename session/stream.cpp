#include "session/stream.h"

#include <cmath>

#include "session/open_recipe.h"
#include "session/structure.h"
#include "session/values.h"
#include "wire/package.h"

namespace vexo::session {

Stream::Stream(Ref<Robot> of, std::vector<std::string> variables, StreamOptions given,
               Layout fields)
    : robot(std::move(of)),
      names(std::move(variables)),
      options(std::move(given)),
      layout(std::move(fields)),
      counter(layout.find(options.counter_variable)),
      time(layout.find(options.time_variable)) {}

void Stream::fail(const VexoSessionError& why) {
    progress = Progress::failed;
    error = why;
    failed.store(true);
    ring.wake();
}

void Stream::close() {
    closed.store(true);
    ring.wake();
}

}  // namespace vexo::session

using namespace vexo::session;
namespace wire = vexo::wire;

namespace {

constexpr size_t kMostValues = UINT16_MAX - wire::kPackageHeader;
constexpr size_t kMostRawValues = wire::kMaxFrameMessage - wire::kPackageHeader;
constexpr double kDefaultRing = 4;
constexpr Nanoseconds kDefaultPeriod = kMillisecond;
constexpr size_t kFewestRecords = 64;

CallOn<Stream> on(VexoSessionStream* stream) {
    return {stream, HandleKind::stream};
}

bool take_options(StreamOptions& options, const VexoSessionStreamOptions* given) {
    VexoSessionStreamOptions taken;
    if (!take(taken, given)) {
        return false;
    }
    options.header_word = taken.header_word;
    options.ring_s = taken.ring_s == 0 ? kDefaultRing : taken.ring_s;
    options.period = taken.period_us * kMicrosecond;
    options.counter_variable = taken.counter_variable != nullptr ? taken.counter_variable : "";
    options.time_variable = taken.time_variable != nullptr ? taken.time_variable : "";
    options.time_unit_s = taken.time_unit_s == 0 ? 1 : taken.time_unit_s;
    return options.ring_s > 0 && std::isfinite(options.ring_s);
}

// Whether the variables that mean something to the library can mean it.
bool check(const Stream& stream, VexoSessionError& error) {
    struct Use {
        const std::string& name;
        const VexoSessionVariable* field;
        bool counts;
    };
    for (const Use& use : {Use{stream.options.counter_variable, stream.counter, true},
                           Use{stream.options.time_variable, stream.time, false}}) {
        if (use.name.empty()) {
            continue;
        }
        if (use.field == nullptr) {
            error = failure(VEXO_SESSION_UNKNOWN_NAME, "\"%.200s\" is not among the stream's names",
                            use.name.c_str());
            return false;
        }
        if (!is_number(*use.field) || (use.counts && is_real(*use.field))) {
            error = failure(VEXO_SESSION_WRONG_TYPE, "\"%.200s\" is no %s", use.name.c_str(),
                            use.counts ? "counter" : "time");
            return false;
        }
    }
    return true;
}

// Behind the values of a record up to a multiple of 8.
size_t record_size(const Layout& layout) {
    return (sizeof(VexoSessionPackage) + layout.bytes() + 7) / 8 * 8;
}

bool allocate(Stream& stream) {
    const Nanoseconds period = stream.options.period != 0 ? stream.options.period : kDefaultPeriod;
    const double records = std::ceil(stream.options.ring_s * 1e9 / static_cast<double>(period));
    const double most = 1e12 / static_cast<double>(record_size(stream.layout));
    return records < most &&
           stream.ring.allocate(record_size(stream.layout),
                                std::max(static_cast<size_t>(records), kFewestRecords));
}

// Makes it what the session streams, unless there is something already.
int32_t want(Robot& robot, const Ref<Stream>& stream) {
    const std::lock_guard lock(robot.monitor);
    if (robot.wanted.stream) {
        return tell(VEXO_SESSION_BUSY, "the session has a stream already");
    }
    robot.wanted.stream = stream;
    return VEXO_SESSION_OK;
}

void no_longer_want(Robot& robot, const Ref<Stream>& stream) {
    {
        const std::lock_guard lock(robot.monitor);
        if (robot.wanted.stream == stream) {
            robot.wanted.stream = {};
        }
    }
    robot.wake();
}

// Ends a stream's cursors, and itself for its readers. The monitor is held.
void end_for_readers(Stream& stream) {
    stream.close();
    for (const Handle cursor : stream.cursors) {
        close_cursor(cursor);
    }
    stream.cursors.clear();
}

int32_t await_pause(Robot& robot, const Ref<Stream>& stream, Nanoseconds deadline) {
    robot.wake();
    const std::lock_guard lock(robot.monitor);
    robot.monitor.wait_until(
        deadline, [&] { return robot.closed.load() || !(robot.wanted.ending == stream); });
    if (robot.wanted.ending == stream) {
        return tell(why_not(robot));
    }
    return stream->error.code == VEXO_SESSION_OK ? VEXO_SESSION_OK : tell(stream->error);
}

}  // namespace

extern "C" int32_t vexo_session_stream_open(VexoSession* session, const char* const* names,
                                            uint32_t count, const VexoSessionStreamOptions* options,
                                            int64_t limit_us, VexoSessionStream** stream) {
    const CallOn<Robot> robot(session, HandleKind::session);
    if (!robot) {
        return tell_closed();
    }
    std::vector<std::string> list;
    StreamOptions given;
    if (stream == nullptr || !copy_names(names, count, list) || !take_options(given, options)) {
        return tell(VEXO_SESSION_BAD_ARGUMENT, "no variables are named, or an option is wrong");
    }
    const Nanoseconds deadline = deadline_after(limit_us);
    VexoSessionError error{};
    auto layout = layout_when_known(
        *robot, VEXO_SESSION_OUTPUT | VEXO_SESSION_INPUT, list, sizeof(VexoSessionPackage),
        robot->settings.raw() ? kMostRawValues : kMostValues, deadline, error);
    if (!layout) {
        return tell(error);
    }
    auto made = make<Stream>(Ref<Robot>::share(&*robot), std::move(list), std::move(given),
                             std::move(*layout));
    if (!check(*made, error)) {
        return tell(error);
    }
    if (!allocate(*made)) {
        return tell(VEXO_SESSION_NO_MEMORY, "there is no memory for %g s of packages",
                    made->options.ring_s);
    }
    const int32_t wanted = want(*robot, made);
    if (wanted != VEXO_SESSION_OK) {
        return wanted;
    }
    Handle handle = 0;
    const int32_t result = await_recipe(*robot, *made, deadline, [&] {
        handle = add_handle(HandleKind::stream, *made);
        robot->children.push_back(handle);
        return handle != 0;
    });
    if (result != VEXO_SESSION_OK) {
        no_longer_want(*robot, made);
        return result;
    }
    *stream = reinterpret_cast<VexoSessionStream*>(handle);
    return VEXO_SESSION_OK;
}

extern "C" int32_t vexo_session_stream_close(VexoSessionStream* stream, int64_t limit_us) {
    const Nanoseconds deadline = deadline_after(limit_us);
    const CallOn<Stream> call = on(stream);
    const auto handle = reinterpret_cast<Handle>(stream);
    if (!call || !shut_handle(handle)) {
        return tell_closed();
    }
    Robot& robot = *call->robot;
    const auto ending = Ref<Stream>::share(&*call);
    bool running = false;
    {
        const std::lock_guard lock(robot.monitor);
        end_for_readers(*ending);
        std::erase(robot.children, handle);
        robot.wanted.stream = {};
        running = robot.standing.state == VEXO_SESSION_STATE_STREAMING &&
                  ending->progress == Progress::standing;
        if (running) {
            robot.wanted.ending = ending;
        }
    }
    return running ? await_pause(robot, ending, deadline) : VEXO_SESSION_OK;
}

extern "C" int32_t vexo_session_stream_layout(VexoSessionStream* stream,
                                              VexoSessionLayout* layout) {
    const CallOn<Stream> call = on(stream);
    if (!call) {
        return tell_closed();
    }
    VexoSessionLayout now{};
    now.fields = static_cast<uint32_t>(call->layout.fields().size());
    now.record_size = static_cast<uint32_t>(call->ring.record_size());
    now.values_offset = sizeof(VexoSessionPackage);
    now.values_bytes = static_cast<uint32_t>(call->layout.bytes());
    now.capacity = call->ring.capacity();
    return layout != nullptr && give(layout, now)
               ? VEXO_SESSION_OK
               : tell(VEXO_SESSION_BAD_ARGUMENT, "there is no room for the layout");
}

extern "C" int32_t vexo_session_stream_field(VexoSessionStream* stream, uint32_t index,
                                             VexoSessionVariable* field) {
    const CallOn<Stream> call = on(stream);
    return call ? give_field(call->layout, index, field) : tell_closed();
}

extern "C" int32_t vexo_session_stream_find(VexoSessionStream* stream, const char* name,
                                            VexoSessionVariable* field) {
    const CallOn<Stream> call = on(stream);
    return call ? give_field(call->layout, name, field) : tell_closed();
}

extern "C" int32_t vexo_session_stream_latest(VexoSessionStream* stream, void* record, size_t bytes,
                                              int64_t* age_ns) {
    const CallOn<Stream> call = on(stream);
    if (!call) {
        return tell_closed();
    }
    if (record == nullptr || bytes < call->ring.record_size()) {
        return tell(VEXO_SESSION_TOO_LARGE, "a record takes %zu bytes", call->ring.record_size());
    }
    if (call->failed.load()) {
        return tell(VEXO_SESSION_CATALOGUE_CHANGED,
                    "the stream's variables are not what they were");
    }
    if (!call->ring.read_newest(static_cast<uint8_t*>(record))) {
        return tell(VEXO_SESSION_NO_DATA, "no package has come yet");
    }
    if (age_ns != nullptr) {
        *age_ns = monotonic_ns() - static_cast<const VexoSessionPackage*>(record)->arrival_ns;
    }
    return VEXO_SESSION_OK;
}
