#include "sim/recording.h"

#include <algorithm>
#include <stdexcept>

#include "tools/mcap/reader.h"

namespace sim {

// The packages stay where they are in the file; only their places are noted. Where there are
// several channels, the first one counts.
Recording::Recording(const std::string& path) : reader_(std::make_unique<mcap::Reader>(path)) {
    std::optional<uint16_t> channel;
    reader_->read([&](const mcap::Message& message) {
        if (!channel) {
            if (auto recipe = mcap::recipe_of(reader_->channels().at(message.channel))) {
                channel = message.channel;
                recipe_ = std::move(*recipe);
                values_.resize(recipe_.bytes());
            }
        }
        if (message.channel == channel && recipe_.decode(message.data, values_.data())) {
            packages_.push_back({message.log_time, message.data});
        }
    });
    if (packages_.empty()) {
        throw std::invalid_argument(path + " has no packages of a controller");
    }
    for (const mcap::Field& field : recipe_.fields()) {
        variables_.push_back({field.name, 0, static_cast<Type>(field.type)});
    }
}

Recording::~Recording() = default;

std::string Recording::catalogue() const {
    const auto& attachments = reader_->attachments();
    const auto found = std::find_if(
        attachments.begin(), attachments.end(),
        [](const mcap::Attachment& attached) { return attached.name == "catalogue.json"; });
    return found != attachments.end() ? found->data : "";
}

BytesView Recording::next() {
    recipe_.decode(packages_[position_].data, values_.data());
    position_ = (position_ + 1) % packages_.size();
    return values_;
}

// From the last to the first it is as long as it was before the last.
Clock::duration Recording::interval() const {
    if (packages_.size() == 1) {
        return std::chrono::seconds(1);
    }
    const size_t behind = std::min(position_ + 1, packages_.size() - 1);
    return std::chrono::nanoseconds(packages_[behind].time - packages_[behind - 1].time);
}

}  // namespace sim
