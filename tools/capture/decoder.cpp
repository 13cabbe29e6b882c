#include "tools/capture/decoder.h"

#include <algorithm>
#include <cstdio>

namespace capture {
namespace {

// What passes by on a link can be anything, and must not fill the memory.
constexpr size_t kMostRobots = 1000;

bool is_ours(uint16_t port) {
    return port == vexo::wire::kIoPort || port == vexo::wire::kControlPort ||
           port == vexo::wire::kReceivePort;
}

std::string text_of(uint32_t address) {
    char text[16];
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", address >> 24, address >> 16 & 255,
                  address >> 8 & 255, address & 255);
    return text;
}

std::string text_of(const MacBytes& station) {
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", station[0], station[1],
                  station[2], station[3], station[4], station[5]);
    return text;
}

}  // namespace

Decoder::Decoder(Options options, Robot::TakeRow take)
    : options_(std::move(options)),
      context_{options_.known, options_.counter, counters_, std::move(take)},
      others_{options_.known, options_.counter, counters_of_others_, [](const Row&) {}} {}

void Decoder::take(const Packet& packet) {
    time_ns_ = packet.time_ns;
    Contents contents = contents_of(packet);
    if (const auto* segment = std::get_if<Segment>(&contents)) {
        take_segment(*segment, packet.time_ns);
    } else if (auto* frame = std::get_if<RawFrame>(&contents)) {
        take_frame(std::move(*frame), packet.time_ns);
    }
}

void Decoder::take_segment(const Segment& segment, int64_t time_ns) {
    const bool from_controller = is_ours(segment.source.port);
    const Endpoint& controller = from_controller ? segment.source : segment.destination;
    if (is_ours(controller.port)) {
        if (Robot* robot = robot_at(controller.address)) {
            robot->take(segment, controller.port, from_controller, time_ns);
        }
    }
}

// What clients send in frames is passed over.
void Decoder::take_frame(RawFrame frame, int64_t time_ns) {
    MacBytes station{};
    std::copy_n(frame.bytes.begin() + vexo::wire::kMacSize, station.size(), station.begin());
    if (Robot* robot = robot_of(station)) {
        robot->take_frame(std::move(frame.bytes), time_ns);
    }
}

Robot* Decoder::robot_at(uint32_t address) {
    const auto found = robots_.find(address);
    if (found != robots_.end()) {
        return &found->second;
    }
    if (robots_.size() == kMostRobots) {
        return nullptr;
    }
    const auto station = [this, address](const MacBytes& mac) {
        if (stations_.size() < kMostRobots) {
            stations_[mac] = address;
        }
    };
    const bool wanted = options_.controller.value_or(address) == address;
    return &robots_.try_emplace(address, text_of(address), wanted ? context_ : others_, station)
                .first->second;
}

Robot* Decoder::robot_of(const MacBytes& station) {
    const auto known = stations_.find(station);
    if (known != stations_.end()) {
        return robot_at(known->second);
    }
    const auto found = unknown_.find(station);
    if (found != unknown_.end()) {
        return &found->second;
    }
    return unknown_.size() < kMostRobots
               ? &unknown_.try_emplace(station, text_of(station), context_).first->second
               : nullptr;
}

void Decoder::finish() {
    for (auto& [address, robot] : robots_) {
        robot.finish(time_ns_);
    }
}

std::vector<std::pair<std::string, Catalogue>> Decoder::catalogues() const {
    std::vector<std::pair<std::string, Catalogue>> catalogues;
    for (const auto& [address, robot] : robots_) {
        if (options_.controller.value_or(address) == address) {
            catalogues.emplace_back(robot.name(), robot.catalogue());
        }
    }
    return catalogues;
}

}  // namespace capture
