#include <cstring>

#include "tools/vexo/convert/convert.h"
#include "tools/vexo/robot.h"

namespace tool {
namespace {

constexpr uint64_t kChunkNs = 1'000'000'000;

}  // namespace

Tape::Tape(const std::string& path) try : reader(path) {
    found = reader.survey();
    for (const auto& [number, channel] : reader.channels()) {
        if (auto recipe = mcap::recipe_of(channel)) {
            recipes.emplace(number, std::move(*recipe));
        }
    }
} catch (const std::exception& error) {
    throw Failure(Exit::failed, "file", error.what(), "name a file that vexo record has written");
}

uint16_t Tape::channel(const std::string& topic) const {
    std::string topics;
    std::vector<uint16_t> fit;
    for (const auto& [number, recipe] : recipes) {
        const std::string& own = reader.channels().at(number).topic;
        topics += ' ' + own;
        if (topic.empty() || topic == own) {
            fit.push_back(number);
        }
    }
    if (fit.size() != 1) {
        throw Failure(Exit::failed, "file",
                      fit.empty() ? "The recording has no such channel of vexo's"
                                  : "The recording has several channels",
                      topics.empty() ? "name a file that vexo record has written"
                                     : "name one with --topic:" + topics);
    }
    return fit[0];
}

TapeWriter::TapeWriter(const std::string& path, mcap::Contents contents)
    : path_(path), writer_(std::move(contents)) {
    check(writer_.open(path_));
}

void TapeWriter::check(int error) const {
    if (error != 0) {
        throw Failure(Exit::failed, "file", path_ + ": " + std::strerror(error),
                      error == EEXIST ? "name another file, or move that one away"
                                      : "name a file where there is room and a right to write");
    }
}

void TapeWriter::add(const mcap::Message& message) {
    const bool full = message.log_time - chunk_begin_ >= kChunkNs || !writer_.add(message);
    if (full) {
        check(writer_.flush());
        chunk_begin_ = message.log_time;
        writer_.add(message);
    }
}

void TapeWriter::close() {
    check(writer_.close());
}

std::vector<VexoSessionVariable> variables_of(const mcap::Recipe& recipe) {
    std::vector<VexoSessionVariable> variables;
    for (const mcap::Field& field : recipe.fields()) {
        auto variable = sized<VexoSessionVariable>();
        variable.kind = VEXO_SESSION_OUTPUT;
        std::strncpy(variable.name, field.name.c_str(), sizeof variable.name - 1);
        const bool text = field.type == VEXO_TYPE_TEXT;
        variable.type = field.type;
        variable.bytes = field.shape.bytes();
        variable.element = text ? static_cast<uint32_t>(VEXO_TYPE_CHAR) : field.shape.element;
        variable.elements = text ? field.shape.size : field.shape.elements;
        variable.offset = field.offset;
        variable.index = static_cast<uint32_t>(variables.size());
        variables.push_back(variable);
    }
    return variables;
}

Converted repair_tape(Tape& tape, const std::string& path) {
    mcap::Contents contents;
    std::map<uint16_t, uint16_t> numbers;  // channels are numbered anew
    for (const auto& [number, channel] : tape.reader.channels()) {
        contents.channels.push_back(channel);
        numbers[number] = static_cast<uint16_t>(contents.channels.size());
    }
    contents.attachments = tape.reader.attachments();
    contents.metadata = tape.reader.metadata();
    TapeWriter writer(path, std::move(contents));
    const mcap::Found found = tape.reader.read([&](mcap::Message message) {
        message.channel = numbers.at(message.channel);
        writer.add(message);
    });
    writer.close();
    return {found.messages, found.damaged + found.compressed};
}

}  // namespace tool
