// vexo session in C++20: the handles of session/session.h as objects that close themselves, views
// instead of pointers and counts, durations instead of numbers. It throws nothing: what can fail
// returns a vexo::Status or a vexo::Result, and vexo::Error says why. session.h is the manual.
//
//   auto robot = vexo::Session::open("192.168.1.20");
//   auto stream = robot->stream({"package_counter", "actual_joint_positions"}, 5s);
//   auto cursor = stream->cursor();
//   vexo::Batch batch(*stream, 256);
//   while (cursor->wait(1s)) {
//       cursor->read(batch);
//       for (vexo::Record record : batch) ...
//   }
#ifndef SESSION_SESSION_HPP
#define SESSION_SESSION_HPP

#include <array>
#include <chrono>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "session/session.h"

namespace vexo {

using Microseconds = std::chrono::microseconds;

// A structure of session.h, all defaults, with its size set.
template <typename Structure>
Structure sized() {
    Structure structure{};
    structure.size = sizeof structure;
    return structure;
}

// The failure that the calling thread has met last.
struct Error : VexoSessionError {
    Error() : VexoSessionError(sized<VexoSessionError>()) { vexo_session_error(this); }
};

// How a call has ended: true when it did what it was for.
class [[nodiscard]] Status {
public:
    Status(int32_t code) : code_(code) {}  // NOLINT: results of session.h are what it is for
    explicit operator bool() const { return code_ >= VEXO_SESSION_OK; }
    int32_t code() const { return code_; }

private:
    int32_t code_;
};

// What a call gives, or how it has failed.
template <typename T>
class [[nodiscard]] Result {
public:
    Result(T value) : value_(std::move(value)) {}    // NOLINT
    Result(Status status) : code_(status.code()) {}  // NOLINT
    explicit operator bool() const { return value_.has_value(); }
    int32_t code() const { return code_; }
    T& operator*() { return *value_; }
    const T& operator*() const { return *value_; }
    T* operator->() { return &*value_; }
    const T* operator->() const { return &*value_; }

private:
    std::optional<T> value_;
    int32_t code_ = VEXO_SESSION_OK;
};

namespace detail {

// A handle that is closed when its owner goes.
template <typename Handle, void (*close)(Handle*)>
class Owned {
public:
    explicit Owned(Handle* handle) : handle_(handle) {}
    Owned(Owned&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    Owned& operator=(Owned&& other) noexcept {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~Owned() {
        if (handle_ != nullptr) {
            close(handle_);
        }
    }
    Handle* get() const { return handle_; }
    Handle* release() { return std::exchange(handle_, nullptr); }

private:
    Handle* handle_;
};

// How long a stream's destructor waits for the controller.
inline constexpr int64_t kPauseLimit = 100'000;

inline void close_session(VexoSession* handle) {
    vexo_session_close(handle);
}
inline void close_stream(VexoSessionStream* handle) {
    vexo_session_stream_close(handle, kPauseLimit);
}
inline void close_cursor(VexoSessionCursor* handle) {
    vexo_session_cursor_close(handle);
}
inline void close_inputs(VexoSessionInputs* handle) {
    vexo_session_inputs_close(handle);
}
inline void close_feed(VexoSessionFeed* handle) {
    vexo_session_feed_close(handle);
}

// Names as the C interface takes them. They must be terminated, as texts in quotes are.
using Names = std::span<const char* const>;

}  // namespace detail

// One record of a stream: a view, as long as the batch that it is of.
class Record {
public:
    explicit Record(const std::byte* bytes) : bytes_(bytes) {}

    const VexoSessionPackage& package() const {
        return *reinterpret_cast<const VexoSessionPackage*>(bytes_);
    }
    double f64(const VexoSessionVariable& field) const {
        double value = 0;
        vexo_session_get_f64(&field, bytes_, &value, 1);
        return value;
    }
    int64_t i64(const VexoSessionVariable& field) const {
        int64_t value = 0;
        vexo_session_get_i64(&field, bytes_, &value, 1);
        return value;
    }
    // Fills as much of `values` as the field has; returns that.
    std::span<double> f64(const VexoSessionVariable& field, std::span<double> values) const {
        const int32_t count = vexo_session_get_f64(&field, bytes_, values.data(),
                                                   static_cast<uint32_t>(values.size()));
        return values.first(count > 0 ? static_cast<size_t>(count) : 0);
    }
    std::string text(const VexoSessionVariable& field) const {
        std::array<char, 256> text{};
        vexo_session_get_text(&field, bytes_, text.data(), text.size());
        return text.data();
    }
    const void* data() const { return bytes_; }

private:
    const std::byte* bytes_;
};

class Stream;

// Room for records, used again by each read.
class Batch {
public:
    Batch(const Stream& stream, uint32_t capacity);

    size_t size() const { return count_; }
    bool empty() const { return count_ == 0; }
    // Records that were overwritten before these.
    uint64_t lost() const { return lost_; }
    Record operator[](size_t index) const { return Record(&bytes_[index * record_size_]); }
    // The records as they lie there, one behind the other.
    std::span<const std::byte> bytes() const {
        return std::span(bytes_).first(count_ * record_size_);
    }
    size_t record_size() const { return record_size_; }

    class Iterator {
    public:
        Iterator(const Batch& batch, size_t index) : batch_(&batch), index_(index) {}
        Record operator*() const { return (*batch_)[index_]; }
        Iterator& operator++() {
            ++index_;
            return *this;
        }
        bool operator==(const Iterator& other) const { return index_ == other.index_; }

    private:
        const Batch* batch_;
        size_t index_;
    };
    Iterator begin() const { return {*this, 0}; }
    Iterator end() const { return {*this, count_}; }

private:
    friend class Cursor;
    size_t record_size_;
    uint32_t capacity_;
    uint32_t count_ = 0;
    uint64_t lost_ = 0;
    std::vector<std::byte> bytes_;
};

class Cursor {
public:
    explicit Cursor(VexoSessionCursor* handle) : handle_(handle) {}
    VexoSessionCursor* get() const { return handle_.get(); }

    Status wait(Microseconds limit) { return vexo_session_cursor_wait(get(), limit.count()); }
    Status read(Batch& batch) {
        return vexo_session_cursor_read(get(), batch.bytes_.data(), batch.capacity_, &batch.count_,
                                        &batch.lost_);
    }
    Result<int> descriptor() {
        int descriptor = -1;
        const Status status = vexo_session_cursor_descriptor(get(), &descriptor);
        return status ? Result<int>(descriptor) : Result<int>(status);
    }

private:
    detail::Owned<VexoSessionCursor, detail::close_cursor> handle_;
};

class Stream {
public:
    explicit Stream(VexoSessionStream* handle) : handle_(handle) {}
    VexoSessionStream* get() const { return handle_.get(); }

    VexoSessionLayout layout() const {
        auto layout = sized<VexoSessionLayout>();
        vexo_session_stream_layout(get(), &layout);
        return layout;
    }
    Result<VexoSessionVariable> field(const char* name) const {
        auto field = sized<VexoSessionVariable>();
        const Status status = vexo_session_stream_find(get(), name, &field);
        return status ? Result<VexoSessionVariable>(field) : Result<VexoSessionVariable>(status);
    }
    Result<Cursor> cursor(
        const VexoSessionCursorOptions& options = sized<VexoSessionCursorOptions>()) const {
        VexoSessionCursor* cursor = nullptr;
        const Status status = vexo_session_cursor_open(get(), &options, &cursor);
        return status ? Result<Cursor>(Cursor(cursor)) : Result<Cursor>(status);
    }
    Status close(Microseconds limit) {
        return vexo_session_stream_close(handle_.release(), limit.count());
    }

private:
    detail::Owned<VexoSessionStream, detail::close_stream> handle_;
};

inline Batch::Batch(const Stream& stream, uint32_t capacity)
    : record_size_(stream.layout().record_size),
      capacity_(capacity),
      bytes_(record_size_ * capacity) {}

class Inputs {
public:
    explicit Inputs(VexoSessionInputs* handle) : handle_(handle) {}
    VexoSessionInputs* get() const { return handle_.get(); }

    Status set(const char* name, double value) { return set(name, std::span(&value, 1)); }
    Status set(const char* name, std::span<const double> values) {
        return vexo_session_inputs_set_f64(get(), name, values.data(),
                                           static_cast<uint32_t>(values.size()));
    }
    Status set_whole(const char* name, int64_t value) {
        return vexo_session_inputs_set_i64(get(), name, &value, 1);
    }
    Status set_text(const char* name, const char* text) {
        return vexo_session_inputs_set_text(get(), name, text);
    }
    Status send() { return vexo_session_inputs_send(get()); }

private:
    detail::Owned<VexoSessionInputs, detail::close_inputs> handle_;
};

class Feed {
public:
    explicit Feed(VexoSessionFeed* handle) : handle_(handle) {}
    VexoSessionFeed* get() const { return handle_.get(); }

    // `points` holds whole set-points, one behind the other, of `joints` numbers each.
    Status push(std::span<const double> points, uint32_t joints, Microseconds limit) {
        return vexo_session_feed_push(get(), points.data(),
                                      static_cast<uint32_t>(points.size() / joints), limit.count(),
                                      nullptr);
    }
    Status drain(Microseconds limit) { return vexo_session_feed_drain(get(), limit.count()); }
    VexoSessionFeedStatus status() const {
        auto status = sized<VexoSessionFeedStatus>();
        vexo_session_feed_status(get(), &status);
        return status;
    }

private:
    detail::Owned<VexoSessionFeed, detail::close_feed> handle_;
};

// An argument of a method: the value is copied, except that of an array.
class Argument {
public:
    static Argument boolean(bool value) { return {VEXO_TYPE_BOOL, value}; }
    static Argument u8(uint8_t value) { return {VEXO_TYPE_U8, value}; }
    static Argument u16(uint16_t value) { return {VEXO_TYPE_U16, value}; }
    static Argument u32(uint32_t value) { return {VEXO_TYPE_U32, value}; }
    static Argument u64(uint64_t value) { return {VEXO_TYPE_U64, value}; }
    static Argument i8(int8_t value) { return {VEXO_TYPE_I8, value}; }
    static Argument i16(int16_t value) { return {VEXO_TYPE_I16, value}; }
    static Argument i32(int32_t value) { return {VEXO_TYPE_I32, value}; }
    static Argument i64(int64_t value) { return {VEXO_TYPE_I64, value}; }
    static Argument f32(float value) { return {VEXO_TYPE_F32, value}; }
    static Argument f64(double value) { return {VEXO_TYPE_F64, value}; }
    static Argument f64x6(const std::array<double, 6>& value) { return {VEXO_TYPE_6F64, value}; }
    static Argument text(std::string_view value) {
        std::array<char, kRoom> bytes{};
        value.copy(bytes.data(), bytes.size());
        return {VEXO_TYPE_TEXT, bytes};
    }
    // At most 255 numbers, which must live until the call.
    static Argument array(std::span<const double> values) {
        Argument argument(VEXO_TYPE_ARRAY, 0);
        argument.array_ = values;
        return argument;
    }

    VexoSessionArgument c_argument() const {
        if (type_ == VEXO_TYPE_ARRAY) {
            return {VEXO_TYPE_ARRAY, VEXO_TYPE_F64, static_cast<uint32_t>(array_.size()), 0,
                    array_.data()};
        }
        return {type_, 0, 0, 0, bytes_.data()};
    }

private:
    static constexpr size_t kRoom = 255;

    template <typename T>
    Argument(uint32_t type, const T& value) : type_(type) {
        static_assert(sizeof value <= kRoom);
        std::memcpy(bytes_.data(), &value, sizeof value);
    }

    uint32_t type_;
    std::array<std::byte, kRoom> bytes_{};
    std::span<const double> array_;
};

class Session {
public:
    explicit Session(VexoSession* handle) : handle_(handle) {}
    VexoSession* get() const { return handle_.get(); }

    static Result<Session> open(const char* address,
                                const VexoSessionOptions& options = sized<VexoSessionOptions>()) {
        VexoSession* session = nullptr;
        const Status status = vexo_session_open(address, &options, &session);
        return status ? Result<Session>(Session(session)) : Result<Session>(status);
    }

    Status wait_ready(Microseconds limit) {
        return vexo_session_wait(get(), VEXO_SESSION_STATE_READY, limit.count());
    }
    VexoSessionStatus status() const { return read<VexoSessionStatus, vexo_session_status>(); }
    VexoSessionStatistics statistics() const {
        return read<VexoSessionStatistics, vexo_session_statistics>();
    }
    VexoSessionClock clock() const { return read<VexoSessionClock, vexo_session_clock>(); }

    Result<Stream> stream(
        detail::Names names, Microseconds limit,
        const VexoSessionStreamOptions& options = sized<VexoSessionStreamOptions>()) {
        VexoSessionStream* stream = nullptr;
        const Status status =
            vexo_session_stream_open(get(), names.data(), static_cast<uint32_t>(names.size()),
                                     &options, limit.count(), &stream);
        return status ? Result<Stream>(Stream(stream)) : Result<Stream>(status);
    }
    Result<Stream> stream(
        std::initializer_list<const char*> names, Microseconds limit,
        const VexoSessionStreamOptions& options = sized<VexoSessionStreamOptions>()) {
        return stream(detail::Names(names.begin(), names.size()), limit, options);
    }
    Result<Inputs> inputs(std::initializer_list<const char*> names, Microseconds limit) {
        VexoSessionInputs* inputs = nullptr;
        const Status status = vexo_session_inputs_open(
            get(), names.begin(), static_cast<uint32_t>(names.size()), limit.count(), &inputs);
        return status ? Result<Inputs>(Inputs(inputs)) : Result<Inputs>(status);
    }
    Result<Feed> feed(const VexoSessionFeedOptions& options) {
        VexoSessionFeed* feed = nullptr;
        const Status status = vexo_session_feed_open(get(), &options, &feed);
        return status ? Result<Feed>(Feed(feed)) : Result<Feed>(status);
    }

    // `reply` receives what the controller sends back, as much as there is room for.
    Status call(const char* method, std::initializer_list<Argument> arguments, Microseconds limit,
                std::span<std::byte> reply = {}, VexoSessionPort port = VEXO_SESSION_PORT_BY_NAME) {
        std::vector<VexoSessionArgument> list;
        for (const Argument& argument : arguments) {
            list.push_back(argument.c_argument());
        }
        size_t bytes = reply.size();
        return vexo_session_call(get(), method, list.data(), static_cast<uint32_t>(list.size()),
                                 static_cast<uint32_t>(port), reply.data(), &bytes, limit.count());
    }
    Status servo(std::span<const double> joints, Microseconds acknowledge, double value = 0) {
        auto point = sized<VexoSessionSetPoint>();
        point.count = static_cast<uint32_t>(joints.size());
        point.joints = joints.data();
        point.value = value;
        return vexo_session_servo(get(), &point, acknowledge.count());
    }
    Status close() { return vexo_session_close(handle_.release()); }

private:
    template <typename Structure, int32_t (*function)(VexoSession*, Structure*)>
    Structure read() const {
        auto structure = sized<Structure>();
        function(get(), &structure);
        return structure;
    }

    detail::Owned<VexoSession, detail::close_session> handle_;
};

}  // namespace vexo

#endif
