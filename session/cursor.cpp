// Places in a stream from which readers read.
#include "session/alarm.h"
#include "session/error.h"
#include "session/robot.h"
#include "session/stream.h"
#include "session/structure.h"

namespace vexo::session {

namespace {

class Cursor final : public Object {
public:
    Cursor(Ref<Stream> stream, bool from_oldest, bool cyclic)
        : stream_(std::move(stream)),
          cyclic_(cyclic),
          next_(from_oldest ? stream_->ring.oldest() : stream_->ring.newest() + 1) {}

    Stream& stream() const { return *stream_; }

    int32_t wait(Nanoseconds deadline);
    uint32_t read(uint8_t* records, uint32_t capacity, uint64_t& lost);
    uint64_t waiting() const;
    // -1: the system has none.
    int descriptor();
    void close();

    std::atomic<bool> closed{false};

private:
    void judge(const uint8_t* records, size_t count) const;
    void rearm();

    const Ref<Stream> stream_;
    const bool cyclic_;
    std::atomic<uint64_t> next_;  // the record to read next
    Mutex alarm_mutex_;
    Ref<Alarm> alarm_;  // guarded by its mutex until it is there, then never changed
    std::atomic<Alarm*> armed_with_{nullptr};
};

int32_t Cursor::wait(Nanoseconds deadline) {
    const auto ended = [&] { return closed.load() || stream_->failed.load(); };
    if (stream_->ring.wait(next_.load(std::memory_order_relaxed), deadline, ended)) {
        return VEXO_SESSION_OK;
    }
    if (closed.load()) {
        return tell_closed();
    }
    if (stream_->failed.load()) {
        return tell(VEXO_SESSION_CATALOGUE_CHANGED,
                    "the stream's variables are not what they were");
    }
    return tell(VEXO_SESSION_TIMED_OUT, "no package has come in time");
}

uint32_t Cursor::read(uint8_t* records, uint32_t capacity, uint64_t& lost) {
    uint64_t next = next_.load(std::memory_order_relaxed);
    const size_t count = stream_->ring.read(next, records, capacity, lost);
    next_.store(next, std::memory_order_relaxed);
    if (lost > 0) {
        stream_->robot->statistics.overwritten.add(lost);
    }
    if (cyclic_) {
        judge(records, count);
    }
    if (count < capacity && armed_with_.load() != nullptr) {
        rearm();
    }
    return static_cast<uint32_t>(count);
}

// A reader that means to have each package at once is late half a period after it was there.
void Cursor::judge(const uint8_t* records, size_t count) const {
    Statistics& statistics = stream_->robot->statistics;
    const Nanoseconds now = monotonic_ns();
    const auto period = static_cast<Nanoseconds>(statistics.period_ns.get());
    for (size_t i = 0; i < count; ++i) {
        const auto* package =
            reinterpret_cast<const VexoSessionPackage*>(records + i * stream_->ring.record_size());
        statistics.measures[VEXO_SESSION_MEASURE_READ].add(now - package->arrival_ns);
        if (period != 0 && now - package->stored_ns > period / 2) {
            statistics.late[VEXO_SESSION_CAUSE_READER].add();
        }
    }
}

uint64_t Cursor::waiting() const {
    const uint64_t next = next_.load(std::memory_order_relaxed);
    const uint64_t newest = stream_->ring.newest();
    return newest < next ? 0 : newest - std::max(next, stream_->ring.oldest()) + 1;
}

int Cursor::descriptor() {
    alarm_mutex_.lock();
    if (!alarm_) {
        auto alarm = make<Alarm>();
        if (alarm->descriptor() >= 0) {
            alarm_ = std::move(alarm);
            armed_with_.store(alarm_.get());
            stream_->ring.arm(alarm_, next_.load(std::memory_order_relaxed));
        }
    }
    const int descriptor = alarm_ ? alarm_->descriptor() : -1;
    alarm_mutex_.unlock();
    return descriptor;
}

void Cursor::rearm() {
    alarm_->clear();
    stream_->ring.arm(alarm_, next_.load(std::memory_order_relaxed));
    if (closed.load()) {
        alarm_->ring();
    }
}

void Cursor::close() {
    closed.store(true);
    stream_->ring.wake();
}

}  // namespace

// What a stream does with its cursors when it is closed.
void close_cursor(Handle handle) {
    const Call call(handle, HandleKind::cursor);
    if (call.object() != nullptr && shut_handle(handle)) {
        static_cast<Cursor*>(call.object())->close();
    }
}

}  // namespace vexo::session

using namespace vexo::session;

namespace {

CallOn<Cursor> on(VexoSessionCursor* cursor) {
    return {cursor, HandleKind::cursor};
}

}  // namespace

extern "C" int32_t vexo_session_cursor_open(VexoSessionStream* stream,
                                            const VexoSessionCursorOptions* options,
                                            VexoSessionCursor** cursor) {
    const CallOn<Stream> call(stream, HandleKind::stream);
    if (!call) {
        return tell_closed();
    }
    VexoSessionCursorOptions taken;
    if (cursor == nullptr || !take(taken, options)) {
        return tell(VEXO_SESSION_BAD_ARGUMENT, "there is no room for the cursor, or no size");
    }
    auto made = make<Cursor>(Ref<Stream>::share(&*call), taken.from_oldest != 0, taken.cyclic != 0);
    call->robot->monitor.lock();
    const bool closed = call->closed.load();
    const Handle handle = closed ? 0 : add_handle(HandleKind::cursor, *made);
    if (handle != 0) {
        call->cursors.push_back(handle);
    }
    call->robot->monitor.unlock();
    if (handle == 0) {
        return closed ? tell_closed() : tell(VEXO_SESSION_NO_MEMORY, "there is no free handle");
    }
    *cursor = reinterpret_cast<VexoSessionCursor*>(handle);
    return VEXO_SESSION_OK;
}

extern "C" int32_t vexo_session_cursor_close(VexoSessionCursor* cursor) {
    const CallOn<Cursor> call = on(cursor);
    const auto handle = reinterpret_cast<Handle>(cursor);
    if (!call || !shut_handle(handle)) {
        return tell_closed();
    }
    call->close();
    Stream& stream = call->stream();
    stream.robot->monitor.lock();
    std::erase(stream.cursors, handle);
    stream.robot->monitor.unlock();
    return VEXO_SESSION_OK;
}

extern "C" int32_t vexo_session_cursor_wait(VexoSessionCursor* cursor, int64_t limit_us) {
    const CallOn<Cursor> call = on(cursor);
    return call ? call->wait(deadline_after(limit_us)) : tell_closed();
}

extern "C" int32_t vexo_session_cursor_read(VexoSessionCursor* cursor, void* records,
                                            uint32_t capacity, uint32_t* count, uint64_t* lost) {
    const CallOn<Cursor> call = on(cursor);
    if (!call) {
        return tell_closed();
    }
    if (records == nullptr || count == nullptr) {
        return tell_null("records or count");
    }
    uint64_t lost_now = 0;
    *count = call->read(static_cast<uint8_t*>(records), capacity, lost_now);
    if (lost != nullptr) {
        *lost = lost_now;
    }
    return VEXO_SESSION_OK;
}

extern "C" int32_t vexo_session_cursor_waiting(VexoSessionCursor* cursor, uint64_t* records) {
    const CallOn<Cursor> call = on(cursor);
    if (!call) {
        return tell_closed();
    }
    if (records == nullptr) {
        return tell_null("records");
    }
    *records = call->waiting();
    return VEXO_SESSION_OK;
}

extern "C" int32_t vexo_session_cursor_descriptor(VexoSessionCursor* cursor, int* descriptor) {
    const CallOn<Cursor> call = on(cursor);
    if (!call) {
        return tell_closed();
    }
    if (descriptor == nullptr) {
        return tell_null("descriptor");
    }
    const int made = call->descriptor();
    if (made < 0) {
        return tell(VEXO_SESSION_SYSTEM, "the process has no descriptor left");
    }
    *descriptor = made;
    return VEXO_SESSION_OK;
}
