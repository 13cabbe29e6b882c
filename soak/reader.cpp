#include "soak/reader.h"

#include <algorithm>

#include "client/vexo.h"

namespace soak {

namespace {

constexpr uint32_t kMeasured = 500;  // packages from which the due times are taken
constexpr size_t kLateKept = 20'000;
constexpr size_t kTransits = 200'000;  // microseconds

void sleep_until(Nanoseconds time) {
    const timespec until{time / kSecond, time % kSecond};
    clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &until, nullptr);
}

}  // namespace

Reader::Reader(size_t controller, uint32_t handle, const PeerRecord& peer)
    : controller_(controller),
      handle_(handle),
      peer_(peer),
      arrivals_(arrivals(controller)),
      package_(1500),
      late_cycles_(kLateKept),  // all of the memory now, that growth can be told later
      transits_(kTransits) {
    late_cycles_.clear();
    thread_ = std::thread([this] { run(); });
}

void Reader::stop() {
    stop_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
}

void Reader::run() {
    if (!wait_for_stream()) {
        return;
    }
    for (uint32_t counter = arrivals_.newest + 2; !stop_; ++counter) {
        sleep_until(due(counter) + kSlack);
        cycle(counter);
    }
}

// The least delay that was seen after the nominal time says where that lies on our clock.
bool Reader::wait_for_stream() {
    while (!stop_ && (arrivals_.newest == 0 || arrivals_.newest - arrivals_.first < kMeasured)) {
        sleep_until(now() + kMillisecond);
    }
    first_due_ = std::numeric_limits<Nanoseconds>::max();
    for (uint32_t counter = arrivals_.first; counter <= arrivals_.newest; ++counter) {
        const Sent& sent = peer_.sent[controller_][counter % kRemembered];
        first_due_ = std::min<Nanoseconds>(first_due_, sent.at - counter * kMillisecond);
    }
    return !stop_;
}

Nanoseconds Reader::due(uint32_t counter) const {
    return first_due_ + counter * kMillisecond;
}

void Reader::cycle(uint32_t counter) {
    const Nanoseconds woken_late = now() - (due(counter) + kSlack);
    const uint32_t seen = read();
    ++cycles_;
    settle();
    take_transit(counter - 1000);  // long since come, if it ever does
    if (seen < counter) {
        pending_.push_back({counter, woken_late});
    } else if (woken_late > kSlack) {
        Lateness lateness;
        lateness[VEXO_SESSION_CAUSE_READER] = woken_late;
        add_late(counter, lateness.cause(), lateness);
    }
}

// The number of the latest package. Each is compared with what the peer has sent.
uint32_t Reader::read() {
    const Nanoseconds begin = now();
    vexo_ouput_data_receive(handle_, 0, package_.data(), static_cast<uint32_t>(package_.size()));
    longest_read_ = std::max(longest_read_, now() - begin);
    const Package content = Package::read(package_.data());
    const Sent& sent = peer_.sent[controller_][content.counter % kRemembered];
    const auto length = static_cast<size_t>(package_[0] | package_[1] << 8);
    if (content.controller != controller_ || sent.counter != content.counter ||
        sent.hash != hash(package_.data(), std::min(length, package_.size()))) {
        ++torn_;
        return latest_;
    }
    backwards_ += content.counter < latest_ ? 1 : 0;
    latest_ = content.counter;
    return latest_;
}

// Looks at the packages that were missed in their cycle, once they or later ones have come.
void Reader::settle() {
    while (!pending_.empty() && arrivals_.newest >= pending_.front().counter) {
        const Pending& pending = pending_.front();
        const Stored* stored = arrivals_.find(pending.counter);
        if (stored == nullptr) {
            add_late(pending.counter, kLost, {});
        } else {
            const Lateness lateness = lateness_of(pending, *stored);
            add_late(pending.counter, lateness.cause(), lateness);
        }
        pending_.pop_front();
    }
}

// In the order of the package's way.
Lateness Reader::lateness_of(const Pending& pending, const Stored& stored) const {
    const Nanoseconds sent = peer_.sent[controller_][pending.counter % kRemembered].at;
    Lateness lateness;
    lateness[VEXO_SESSION_CAUSE_PEER] = sent - due(pending.counter);
    lateness[VEXO_SESSION_CAUSE_WIRE] = stored.in_kernel - sent;
    lateness[VEXO_SESSION_CAUSE_WAKE_UP] = stored.at - stored.in_kernel - stored.busy;
    lateness[VEXO_SESSION_CAUSE_LIBRARY] = stored.busy;
    lateness[VEXO_SESSION_CAUSE_READER] = pending.woken_late;
    return lateness;
}

void Reader::add_late(uint32_t counter, uint32_t cause, const Lateness& lateness) {
    ++late_[cause];
    if (late_cycles_.size() < kLateKept) {
        late_cycles_.push_back({controller_, counter, cause, lateness});
    }
}

void Reader::take_transit(uint32_t counter) {
    const Stored* stored = arrivals_.find(counter);
    const Sent& sent = peer_.sent[controller_][counter % kRemembered];
    if (stored != nullptr && sent.counter == counter) {
        const Nanoseconds microseconds = std::max<Nanoseconds>(stored->at - sent.at, 0) / 1000;
        ++transits_[std::min(static_cast<size_t>(microseconds), kTransits - 1)];
    }
}

}  // namespace soak
