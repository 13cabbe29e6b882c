#include "tools/capture/robot.h"

#include <cstring>
#include <utility>

#include "wire/frame.h"
#include "wire/value_type.h"

namespace capture {
namespace {

// Frames that are further behind than this were not overtaken: the controller counts anew.
constexpr int kMostOvertaken = 64;
// A counter that goes further than this was set anew.
constexpr uint64_t kMostMissing = 1'000'000;

}  // namespace

Robot::Robot(std::string name, const Context& context, std::function<void(const MacBytes&)> station)
    : name_(std::move(name)),
      context_(context),
      recipes_(context.known),
      dialogue_(recipes_, std::move(station)),
      packages_(recipes_, context.counters, [this](const Package& package) { show(package); }),
      io_(dialogue_.requests(), dialogue_.replies(), context.counters, [this] { begin_session(); }),
      stream_(nothing_, packages_, context.counters, [this] { packages_.begin(); }) {}

void Robot::begin_session() {
    dialogue_.begin();
    last_sequence_.reset();
    last_count_.reset();
}

void Robot::take(const Segment& segment, uint16_t port, bool from_controller, int64_t time_ns) {
    if (port == vexo::wire::kIoPort) {
        io_.take(segment, from_controller, time_ns);
    } else if (port == vexo::wire::kReceivePort) {
        stream_.take(segment, from_controller, time_ns);
    }
}

void Robot::take_frame(std::vector<uint8_t> frame, int64_t time_ns) {
    const auto opened = vexo::wire::open_ethernet_frame(frame);
    if (opened.fault != vexo::wire::FrameFault::none) {
        ++context_.counters.bad_frames;
        return;
    }
    if (!in_order(opened.sequence) ||
        opened.code != static_cast<uint8_t>(vexo::wire::FrameCode::output_package)) {
        return;
    }
    const auto header = vexo::wire::package_header(opened.payload);
    const auto& layout = recipes_.layout(header.recipe);
    if (!fits(header, recipes_) || header.length > opened.payload.size()) {
        ++context_.counters.malformed;
    } else if (layout == nullptr) {
        ++context_.counters.unnamed;
    } else {
        const Bytes package = opened.payload.first(header.length);
        show({header.recipe, layout, package.subspan(vexo::wire::kPackageHeader), time_ns,
              std::exchange(lost_frames_, uint64_t{0})});
    }
}

void Robot::finish(int64_t time_ns) {
    io_.finish(time_ns);
    stream_.finish(time_ns);
}

// Frames are never sent again. One that is missing is taken for a package: acknowledgements are
// numbered with them.
bool Robot::in_order(uint16_t sequence) {
    const uint16_t expected = static_cast<uint16_t>(last_sequence_.value_or(sequence - 1) + 1);
    const auto ahead = static_cast<int16_t>(sequence - expected);
    if (ahead < 0 && ahead >= -kMostOvertaken) {
        ++context_.counters.repeated_frames;
        return false;
    }
    lost_frames_ += ahead > 0 ? static_cast<uint64_t>(ahead) : 0;
    last_sequence_ = sequence;
    return true;
}

void Robot::show(const Package& package) {
    const uint64_t lost = gap_of_counter(package);
    ++context_.counters.packages;
    context_.counters.lost += lost;
    context_.take(
        {name_, package.layout, package.recipe, package.time_ns, ++number_, lost, package.values});
}

// What the counter left out was lost, wherever that happened. Without one: what was seen to be
// missing.
uint64_t Robot::gap_of_counter(const Package& package) {
    const Field* field =
        context_.counter.empty() ? nullptr : package.layout->find(context_.counter);
    const size_t width = field != nullptr ? vexo::wire::type_width(field->type) : 0;
    if (width == 0 || width > sizeof(uint64_t)) {
        return number_ > 0 ? package.lost : 0;
    }
    uint64_t count = 0;
    std::memcpy(&count, package.values.data() + field->offset, width);
    const size_t unused = 64 - 8 * width;
    const uint64_t step = (count - last_count_.value_or(count - 1)) << unused >> unused;
    last_count_ = count;
    return step > 1 && step <= kMostMissing ? step - 1 : 0;
}

}  // namespace capture
