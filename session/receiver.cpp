#include "session/receiver.h"

#include <sys/epoll.h>

#include <array>
#include <cstring>

#include "session/error.h"
#include "session/values.h"

namespace vexo::session {

namespace {

constexpr Nanoseconds kShortestPatience = 250 * kMillisecond;
constexpr Nanoseconds kFirstPatience = kSecond;
constexpr Nanoseconds kPeriodsOfPatience = 20;
constexpr size_t kFrameRoom = 2048;
// A counter that goes further than this was set anew.
constexpr uint64_t kMostMissing = 1'000'000;

}  // namespace

Receiver::Receiver(IoThread& io, Statistics& statistics, Owner& owner)
    : io_(io), statistics_(statistics), owner_(owner), punctuality_(statistics) {}

bool Receiver::begin(Ref<Link> link) {
    link->stamp_arrivals();
    reader_.clear();
    link_ = std::move(link);
    return io_.watch(link_->descriptor(), EPOLLIN | EPOLLRDHUP, *this);
}

bool Receiver::begin(Ref<RawPort> port) {
    port_ = std::move(port);
    last_sequence_ = -1;
    return io_.watch(port_->descriptor(), EPOLLIN, *this);
}

void Receiver::expect(Ref<Stream> stream, uint8_t recipe, uint32_t connection) {
    reader_.expect(recipe, stream->layout.bytes() + wire::kPackageHeader);
    punctuality_.begin(stream->options.period);
    stream_ = std::move(stream);
    recipe_ = recipe;
    connection_ = connection;
    heard_at_ = monotonic_ns();
    heard_ = false;
    last_arrival_ = 0;
    beat_ = 0;
    frames_missing_ = 0;
}

void Receiver::expect_nothing() {
    reader_.expect(0, 0);
    stream_ = {};
}

void Receiver::end() {
    if (link_) {
        io_.forget(link_->descriptor());
        link_->abort();
    }
    if (port_) {
        io_.forget(port_->descriptor());
    }
    link_ = {};
    port_ = {};
    expect_nothing();
}

Nanoseconds Receiver::patience() const {
    const Nanoseconds by_period =
        std::max(kShortestPatience, kPeriodsOfPatience * punctuality_.period());
    return heard_ ? by_period : std::max(by_period, kFirstPatience);
}

void Receiver::count_drops() {
    if (port_) {
        statistics_.kernel_drops.add(port_->drops());
    }
}

void Receiver::ready(uint32_t) {
    if (port_) {
        receive_frames();
    } else if (link_) {
        receive_bytes();
    }
}

// The kernel's stamp; the moment of waking when it gives none.
Receiver::Arrival Receiver::arrival_of(msghdr& message) const {
    for (cmsghdr* c = CMSG_FIRSTHDR(&message); c != nullptr; c = CMSG_NXTHDR(&message, c)) {
        if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SO_TIMESTAMPNS) {
            timespec stamp{};
            std::memcpy(&stamp, CMSG_DATA(c), sizeof stamp);
            return {nanoseconds(stamp), true};
        }
    }
    return {io_.rounds().began + io_.rounds().realtime_ahead, false};
}

namespace {

msghdr message_into(iovec& piece, std::span<uint8_t> control) {
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    return message;
}

}  // namespace

void Receiver::receive_bytes() {
    const std::span<uint8_t> room = reader_.room();
    iovec piece{room.data(), room.size()};
    alignas(cmsghdr) std::array<uint8_t, 128> control;
    msghdr message = message_into(piece, control);
    const ssize_t got = recvmsg(link_->descriptor(), &message, MSG_DONTWAIT);
    if (got == 0) {
        owner_.receiver_failed(
            failure(VEXO_SESSION_CUT, "the controller has closed the stream's connection"));
        return;
    }
    if (got < 0) {
        if (errno != EAGAIN && errno != EINTR) {
            owner_.receiver_failed(
                system_failure(VEXO_SESSION_CUT, "the stream's connection broke", errno));
        }
        return;
    }
    reader_.received(static_cast<size_t>(got));
    const Arrival arrival = arrival_of(message);
    std::span<const uint8_t> values;
    for (;;) {
        switch (reader_.next(values)) {
            case PackageReader::Found::nothing:
                return;
            case PackageReader::Found::package:
                store(values, arrival);
                break;
            case PackageReader::Found::foreign:
                statistics_.foreign.add();
                break;
            case PackageReader::Found::malformed:
                statistics_.malformed.add();
                break;
            case PackageReader::Found::no_header:
                owner_.receiver_failed(
                    failure(VEXO_SESSION_OUT_OF_STEP, "no package begins where the last one ends"));
                return;
        }
    }
}

// One frame each time: to look for a second would hold up the first.
void Receiver::receive_frames() {
    std::array<uint8_t, kFrameRoom> frame;
    iovec piece{frame.data(), frame.size()};
    alignas(cmsghdr) std::array<uint8_t, 128> control;
    msghdr message = message_into(piece, control);
    const ssize_t got = recvmsg(port_->descriptor(), &message, MSG_DONTWAIT);
    if (got > 0) {
        take_frame(std::span(frame).first(static_cast<size_t>(got)), arrival_of(message));
    }
}

void Receiver::take_frame(std::span<uint8_t> frame, const Arrival& arrival) {
    const auto opened = wire::open_ethernet_frame(frame);
    if (opened.fault != wire::FrameFault::none) {
        statistics_.malformed.add();
        return;
    }
    if (!in_order(opened.sequence) ||
        opened.code != static_cast<uint8_t>(wire::FrameCode::output_package)) {
        return;
    }
    const wire::PackageHeader header = wire::package_header(opened.payload);
    const bool ours = stream_ && header.plausible() && header.recipe == recipe_;
    if (!ours) {
        statistics_.foreign.add();
    } else if (header.length != stream_->layout.bytes() + wire::kPackageHeader ||
               header.length > opened.payload.size()) {
        statistics_.malformed.add();
    } else {
        store(opened.payload.first(header.length).subspan(wire::kPackageHeader), arrival);
    }
}

// Frames that come twice, or behind later ones, are passed over. What is missing before this one
// counts as packages: acknowledgements are counted on this socket, too.
bool Receiver::in_order(uint16_t sequence) {
    const auto step = static_cast<int16_t>(
        static_cast<uint16_t>(sequence - static_cast<uint16_t>(last_sequence_)));
    if (last_sequence_ >= 0 && step <= 0) {
        return false;
    }
    frames_missing_ += last_sequence_ >= 0 ? static_cast<uint32_t>(step - 1) : 0;
    last_sequence_ = sequence;
    return true;
}

void Receiver::store(std::span<const uint8_t> values, const Arrival& arrival) {
    VexoSessionPackage package{};
    package.number = stream_->ring.newest() + 1;
    package.arrival_realtime_ns = arrival.realtime;
    package.arrival_ns = arrival.realtime - io_.rounds().realtime_ahead;
    package.lost = missing_before(values);
    package.connection = connection_;
    package.bytes = static_cast<uint16_t>(values.size());
    package.stamped = arrival.stamped ? 1 : 0;
    statistics_.packages.add();
    statistics_.package_bytes.add(values.size());
    uint8_t* record = stream_->ring.begin();
    std::memcpy(record + sizeof package, values.data(), values.size());
    package.stored_ns = monotonic_ns();
    std::memcpy(record, &package, sizeof package);
    stream_->ring.publish();
    count(package, values);
}

// Before the first package nothing is known to be missing.
uint32_t Receiver::missing_before(std::span<const uint8_t> values) {
    const uint32_t frames = std::exchange(frames_missing_, 0);
    const uint32_t gap = stream_->counter != nullptr ? gap_of_counter(values) : frames;
    if (!heard_ || gap == 0) {
        return 0;
    }
    statistics_.lost.add(gap);
    owner_.packages_lost();
    return gap;
}

uint32_t Receiver::gap_of_counter(std::span<const uint8_t> values) {
    const VexoSessionVariable& field = *stream_->counter;
    const auto counter = static_cast<uint64_t>(whole_value(field, place_of(field, values)));
    const unsigned unused_bits = 64 - 8 * field.bytes;
    const uint64_t step = (counter - last_counter_) << unused_bits >> unused_bits;
    last_counter_ = counter;
    return step > 1 && step <= kMostMissing ? static_cast<uint32_t>(step - 1) : 0;
}

const uint8_t* Receiver::place_of(const VexoSessionVariable& field,
                                  std::span<const uint8_t> values) {
    return values.data() + (field.offset - sizeof(VexoSessionPackage));
}

void Receiver::count(const VexoSessionPackage& package, std::span<const uint8_t> values) {
    statistics_.measures[VEXO_SESSION_MEASURE_AGE].add(package.stored_ns - package.arrival_ns);
    if (last_arrival_ != 0) {
        statistics_.measures[VEXO_SESSION_MEASURE_INTERVAL].add(package.arrival_ns - last_arrival_);
    }
    Nanoseconds sent = 0;
    if (stream_->time != nullptr) {
        const VexoSessionVariable& time = *stream_->time;
        const double told = real_value(time, place_of(time, values)) * stream_->options.time_unit_s;
        sent = stream_->clock.valid() ? stream_->clock.predict(told) : 0;
        stream_->clock.add(told, package.arrival_ns);
    }
    beat_ += 1 + package.lost;
    punctuality_.add({beat_, package.arrival_ns, package.stored_ns, sent}, io_.rounds());
    last_arrival_ = package.arrival_ns;
    heard_at_ = package.stored_ns;
    heard_ = true;
}

}  // namespace vexo::session
