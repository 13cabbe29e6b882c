#include "tools/vexo/capture_source.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "tools/vexo/interrupt.h"
#include "tools/vexo/robot.h"
#include "tools/vexo/times.h"

namespace tool {
namespace {

using std::chrono::steady_clock;

// The type of one element of an array.
uint8_t element_of(uint8_t type) {
    switch (type) {
        case VEXO_TYPE_3F64:
        case VEXO_TYPE_6F64:
            return VEXO_TYPE_F64;
        case VEXO_TYPE_3F32:
        case VEXO_TYPE_6F32:
            return VEXO_TYPE_F32;
        case VEXO_TYPE_6I32:
            return VEXO_TYPE_I32;
        case VEXO_TYPE_6U32:
            return VEXO_TYPE_U32;
        case VEXO_TYPE_TEXT:
            return VEXO_TYPE_CHAR;
        default:
            return type;
    }
}

std::string names_of(const capture::Layout& layout) {
    constexpr size_t kMost = 12;
    std::string names;
    for (size_t i = 0; i < std::min(layout.fields().size(), kMost); ++i) {
        names += (i > 0 ? ", " : "") + layout.fields()[i].name;
    }
    return layout.fields().size() > kMost ? names + ", ..." : names;
}

}  // namespace

VexoSessionVariable variable_of(const capture::Field& field) {
    auto variable = sized<VexoSessionVariable>();
    field.name.copy(variable.name, sizeof variable.name - 1);
    variable.kind = VEXO_SESSION_OUTPUT;
    variable.type = field.type;
    variable.bytes = static_cast<uint32_t>(field.bytes);
    variable.element = element_of(field.type);
    variable.elements = field.elements;
    variable.offset = static_cast<uint32_t>(sizeof(VexoSessionPackage) + field.offset);
    return variable;
}

CaptureSource::CaptureSource(Context& context, const std::vector<std::string>& names)
    : context_(context),
      names_(names),
      reader_(context.options, [this](const capture::Row& row) { take(row); }),
      patience_(limit_us(context)) {
    if (reader_.live()) {
        context.output.detail("listening on " + context.options.capture);
    }
    if (!fill(TimePoint::max())) {
        throw silence();
    }
}

CaptureSource::~CaptureSource() {
    if (const std::string mishaps = reader_.mishaps(); !mishaps.empty()) {
        context_.output.note("capture: " + mishaps);
    }
}

// Keeps the values that were asked for, one behind the other.
void CaptureSource::take(const capture::Row& row) {
    if (controller_.empty()) {
        controller_ = row.controller;
        context_.output.detail("controller: " + controller_);
    }
    if (row.controller != controller_) {
        return;
    }
    if (layout_ != row.layout) {
        learn(row.layout);
    }
    VexoSessionPackage package{};
    package.number = row.number;
    package.arrival_realtime_ns = package.arrival_ns = package.stored_ns = row.time_ns;
    package.lost = static_cast<uint32_t>(std::min<uint64_t>(row.lost, UINT32_MAX));
    package.bytes = static_cast<uint16_t>(row.values.size());
    package.stamped = 1;
    const size_t end = fields_.back().offset + fields_.back().bytes;
    Record record((end + sizeof(uint64_t) - 1) / sizeof(uint64_t));
    auto* bytes = reinterpret_cast<uint8_t*>(record.data());
    std::memcpy(bytes, &package, sizeof package);
    for (size_t i = 0; i < fields_.size(); ++i) {
        std::memcpy(bytes + fields_[i].offset, row.values.data() + places_[i]->offset,
                    fields_[i].bytes);
    }
    waiting_.push_back(std::move(record));
}

// The holder of the stream may set it up anew: then the values are elsewhere.
void CaptureSource::learn(const std::shared_ptr<const capture::Layout>& layout) {
    const std::vector<VexoSessionVariable> before = std::exchange(fields_, {});
    size_t offset = 0;
    places_.clear();
    for (const std::string& name : names_) {
        const capture::Field* field = layout->find(name);
        if (field == nullptr) {
            throw Failure(Exit::failed, "unknown_name", "The stream has no \"" + name + '"',
                          "it has " + names_of(*layout));
        }
        places_.push_back(field);
        fields_.push_back(variable_of(capture::make_field(field->name, field->type, offset)));
        fields_.back().index = static_cast<uint32_t>(fields_.size() - 1);
        offset += fields_.back().bytes;
        if (!before.empty() && before[fields_.size() - 1].type != fields_.back().type) {
            throw Failure(Exit::failed, "catalogue_changed", '"' + name + "\" has another type now",
                          "start the command again");
        }
    }
    layout_ = layout;
}

// Waits for packages. False: none come any more.
bool CaptureSource::fill(TimePoint end) {
    while (waiting_.empty() && !interrupted()) {
        const TimePoint due = heard_ + patience_;
        const TimePoint now = steady_clock::now();
        if (now >= end || (reader_.live() && now >= due)) {
            break;
        }
        if (!reader_.read(std::min(end, due))) {
            break;
        }
    }
    if (!waiting_.empty()) {
        heard_ = steady_clock::now();
    }
    return !waiting_.empty();
}

Failure CaptureSource::silence() const {
    if (interrupted()) {
        return Failure(Exit::unreachable, "interrupted", "Interrupted before a package came", "");
    }
    const std::string& where = context_.options.capture;
    if (const uint64_t unnamed = reader_.decoder().counters().unnamed; unnamed > 0) {
        return Failure(Exit::failed, "unnamed",
                       std::to_string(unnamed) + " packages passed by in " + where +
                           ", but their set-up did not: what they hold is not known",
                       "give --catalogue and --recipe, or capture from before the application "
                       "connects");
    }
    return Failure(reader_.live() ? Exit::unreachable : Exit::failed, "silent",
                   "No package of a controller passed by in " + where,
                   "see whether the stream is started, and goes over this interface: others' "
                   "come through a mirrored port only");
}

std::optional<Row> CaptureSource::next(TimePoint end) {
    if (!fill(end)) {
        if (reader_.live() && !interrupted() && steady_clock::now() < end) {
            throw silence();
        }
        return std::nullopt;
    }
    shown_ = std::move(waiting_.front());
    waiting_.pop_front();
    const auto* package = reinterpret_cast<const VexoSessionPackage*>(shown_.data());
    return Row{package, realtime_now_ns() - package->arrival_realtime_ns, package->lost};
}

}  // namespace tool
