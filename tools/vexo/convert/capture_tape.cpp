#include "tools/capture/decoder.h"
#include "tools/capture/packet_source.h"
#include "tools/vexo/convert/convert.h"

namespace tool {
namespace {

void read_capture(const std::string& path, const capture::Robot::TakeRow& take) {
    try {
        capture::Decoder decoder({{}, {}, "package_counter"}, take);
        capture::PacketSource source(path);
        if (source.live()) {
            throw capture::SourceError(path + " is a network interface",
                                       "name a file; vexo watch --capture looks at an interface");
        }
        capture::Packet packet{};
        while (source.next(packet) == capture::PacketSource::Next::packet) {
            decoder.take(packet);
        }
        decoder.finish();
    } catch (const capture::SourceError& error) {
        throw Failure(Exit::failed, "file", error.what(), error.remedy);
    }
}

std::string text_of(const capture::Layout& layout) {
    mcap::Recipe recipe;
    for (const capture::Field& field : layout.fields()) {
        recipe.add(field.name, field.type);
    }
    return recipe.to_text();
}

// Numbers the channels in the order in which they appear.
class Channels {
public:
    uint16_t number(const capture::Row& row) {
        const auto key = std::pair(row.controller, text_of(*row.layout));
        const auto [found, added] = numbers_.emplace(key, contents.channels.size() + 1);
        if (added) {
            recipes.push_back(mcap::Recipe::from_text(key.second));
            contents.channels.push_back(mcap::channel_of(recipes.back(), '/' + row.controller));
        }
        return static_cast<uint16_t>(found->second);
    }

    mcap::Contents contents;
    std::vector<mcap::Recipe> recipes;

private:
    std::map<std::pair<std::string, std::string>, size_t> numbers_;
};

}  // namespace

// Twice through the file: channels stand at the beginning of a recording.
Converted capture_to_tape(const std::string& capture, const std::string& path) {
    Channels channels;
    Converted converted;
    read_capture(capture, [&](const capture::Row& row) {
        channels.number(row);
        converted.skipped += row.lost;
    });
    TapeWriter writer(path, channels.contents);
    mcap::Bytes cdr;
    read_capture(capture, [&](const capture::Row& row) {
        const uint16_t number = channels.number(row);
        channels.recipes[number - 1U].encode(row.values.data(), cdr);
        const auto time = static_cast<uint64_t>(row.time_ns);
        writer.add({number, static_cast<uint32_t>(row.number), time, time, cdr});
        ++converted.packages;
    });
    writer.close();
    return converted;
}

}  // namespace tool
