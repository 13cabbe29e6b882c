#include "tools/mcap/reader.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "tools/mcap/crc32.h"

namespace mcap {
namespace {

const auto kNobody = [](const Message&) {};

// Where what must be held in memory as a whole ends.
constexpr uint64_t kLargestText = uint64_t{64} << 20;

View map_file(const std::string& path) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status {};
    if (descriptor < 0 || fstat(descriptor, &status) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    const auto size = static_cast<size_t>(status.st_size);
    void* mapped =
        size > 0 ? mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0) : MAP_FAILED;
    close(descriptor);
    if (mapped == MAP_FAILED) {
        throw std::runtime_error(path + " is empty, or no file");
    }
    madvise(mapped, size, MADV_SEQUENTIAL);
    return {static_cast<const uint8_t*>(mapped), size};
}

std::optional<Message> message_of(View content) {
    Unpacker in(content);
    Message message{};
    message.channel = in.number<uint16_t>();
    message.sequence = in.number<uint32_t>();
    message.log_time = in.number<uint64_t>();
    message.publish_time = in.number<uint64_t>();
    message.data = in.bytes(in.left());
    return in.ok() ? std::optional(message) : std::nullopt;
}

struct ChunkParts {
    bool compressed;
    uint32_t crc;
    View records;
};

std::optional<ChunkParts> chunk_of(View content) {
    Unpacker in(content);
    in.bytes(3 * sizeof(uint64_t));
    ChunkParts parts{};
    parts.crc = in.number<uint32_t>();
    parts.compressed = !in.text().empty();
    parts.records = in.bytes(in.number<uint64_t>());
    return in.ok() ? std::optional(parts) : std::nullopt;
}

bool sound(const ChunkParts& parts) {
    return parts.compressed || parts.crc == 0 || crc32(parts.records) == parts.crc;
}

}  // namespace

Reader::Reader(const std::string& path) : file_(map_file(path)) {
    if (file_.size() < kMagic.size() || !std::equal(kMagic.begin(), kMagic.end(), file_.begin())) {
        munmap(const_cast<uint8_t*>(file_.data()), file_.size());
        throw std::runtime_error(path + " is no MCAP file");
    }
}

Reader::~Reader() {
    munmap(const_cast<uint8_t*>(file_.data()), file_.size());
}

View Reader::at(uint64_t place, uint64_t size) {
    if (place > file_.size() || size > file_.size() - place) {
        return {};
    }
    return file_.subspan(place, size);
}

// Nothing where no whole record stands.
std::optional<Reader::Head> Reader::head_at(uint64_t place) {
    Unpacker in(at(place, kRecordHead));
    const Head head{static_cast<Opcode>(in.number<uint8_t>()), in.number<uint64_t>()};
    const bool whole =
        in.ok() && head.opcode != Opcode{0} && head.length <= file_.size() - place - kRecordHead;
    return whole ? std::optional(head) : std::nullopt;
}

Found Reader::survey() {
    return read(kNobody);
}

Found Reader::read(const Take& take) {
    schemas_.clear();
    channels_.clear();
    attachments_.clear();
    metadata_.clear();
    Found found;
    uint64_t place = kMagic.size();
    bool ended = false;
    while (!ended && place < file_.size()) {
        const std::optional<Head> head = head_at(place);
        ended = head && (head->opcode == Opcode::data_end || head->opcode == Opcode::footer);
        if (ended) {
            break;
        }
        const View content = head ? at(place + kRecordHead, head->length) : View{};
        if (head && take_record(head->opcode, content, take, found)) {
            place += kRecordHead + head->length;
        } else {
            ++found.damaged;
            place = next_chunk(place + 1).value_or(file_.size());
        }
    }
    const std::optional<uint64_t> counted = counted_messages();
    found.complete = counted && found.messages >= *counted;
    return found;
}

// False when it is not what it should be.
bool Reader::take_record(Opcode opcode, View content, const Take& take, Found& found) {
    if (opcode == Opcode::chunk) {
        return take_chunk(content, take, found);
    }
    if (opcode == Opcode::message) {
        const std::optional<Message> message = message_of(content);
        if (message && channels_.contains(message->channel)) {
            ++found.messages;
            take(*message);
            return true;
        }
        return false;
    }
    if (content.size() > kLargestText) {
        return true;
    }
    if (opcode == Opcode::schema) {
        take_schema(content);
    } else if (opcode == Opcode::channel) {
        take_channel(content);
    } else if (opcode == Opcode::attachment) {
        take_attachment(content);
    } else if (opcode == Opcode::metadata) {
        Unpacker in(content);
        std::string name = in.text();
        metadata_.push_back({std::move(name), in.texts()});
    }
    return true;
}

bool Reader::take_chunk(View content, const Take& take, Found& found) {
    const std::optional<ChunkParts> parts = chunk_of(content);
    if (!parts || !sound(*parts)) {
        return false;
    }
    if (parts->compressed) {
        ++found.compressed;
        return true;
    }
    Unpacker in(parts->records);
    while (in.ok() && !in.empty()) {
        const auto opcode = static_cast<Opcode>(in.number<uint8_t>());
        const View record = in.bytes(in.number<uint64_t>());
        if (in.ok() && opcode != Opcode::chunk && !take_record(opcode, record, take, found)) {
            ++found.damaged;
        }
    }
    return true;
}

void Reader::take_schema(View content) {
    Unpacker in(content);
    const auto number = in.number<uint16_t>();
    Channel schema;
    schema.schema_name = in.text();
    schema.schema_encoding = in.text();
    schema.schema = in.text();
    schemas_[number] = std::move(schema);
}

void Reader::take_channel(View content) {
    Unpacker in(content);
    const auto number = in.number<uint16_t>();
    Channel channel = schemas_[in.number<uint16_t>()];
    channel.topic = in.text();
    channel.message_encoding = in.text();
    channel.metadata = in.texts();
    channels_[number] = std::move(channel);
}

void Reader::take_attachment(View content) {
    Unpacker in(content);
    in.bytes(2 * sizeof(uint64_t));
    Attachment attachment;
    attachment.name = in.text();
    attachment.media_type = in.text();
    const View data = in.bytes(in.number<uint64_t>());
    attachment.data.assign(data.begin(), data.end());
    attachments_.push_back(std::move(attachment));
}

// Behind a damaged place: where a chunk stands whose checksum says that it is one.
std::optional<uint64_t> Reader::next_chunk(uint64_t from) {
    const auto opcode = static_cast<uint8_t>(Opcode::chunk);
    for (uint64_t place = from; place < file_.size(); ++place) {
        const auto* next = static_cast<const uint8_t*>(
            std::memchr(file_.data() + place, opcode, file_.size() - place));
        if (next == nullptr) {
            return std::nullopt;
        }
        place = static_cast<uint64_t>(next - file_.data());
        const std::optional<Head> head = head_at(place);
        const std::optional<ChunkParts> parts =
            head ? chunk_of(at(place + kRecordHead, head->length)) : std::nullopt;
        if (parts && parts->crc != 0 && !parts->compressed && !parts->records.empty() &&
            sound(*parts)) {
            return place;
        }
    }
    return std::nullopt;
}

// By the summary, if it is there.
std::optional<uint64_t> Reader::counted_messages() {
    const uint64_t footer_bytes = kFooterBytes + kMagic.size();
    if (file_.size() < footer_bytes ||
        !std::equal(kMagic.begin(), kMagic.end(), file_.end() - kMagic.size())) {
        return std::nullopt;
    }
    const uint64_t footer = file_.size() - footer_bytes;
    Unpacker in(at(footer + kRecordHead, sizeof(uint64_t)));
    for (uint64_t place = in.number<uint64_t>(); place != 0 && place < footer;) {
        const std::optional<Head> head = head_at(place);
        if (!head) {
            return std::nullopt;
        }
        if (head->opcode == Opcode::statistics) {
            Unpacker statistics(at(place + kRecordHead, head->length));
            return statistics.number<uint64_t>();
        }
        place += kRecordHead + head->length;
    }
    return std::nullopt;
}

}  // namespace mcap
