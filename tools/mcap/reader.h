// Reads MCAP files from beginning to end: whole ones, those of a writer that was killed, and what
// is left of those that were cut. Chunks that are compressed are passed over, with a count.
#ifndef TOOLS_MCAP_READER_H
#define TOOLS_MCAP_READER_H

#include <functional>
#include <map>
#include <optional>

#include "tools/mcap/record.h"

namespace mcap {

// What was found of a file.
struct Found {
    uint64_t messages = 0;
    uint64_t damaged = 0;     // places where something else stood than should
    uint64_t compressed = 0;  // chunks that were passed over
    bool complete = false;    // the summary is there, and so are all messages that it counts
};

class Reader {
public:
    // Throws std::system_error when it cannot be read, std::runtime_error when it is no MCAP file.
    explicit Reader(const std::string& path);
    ~Reader();
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    using Take = std::function<void(const Message&)>;
    // Has each message taken, in the file's order. Channels are known before their messages.
    Found read(const Take& take);
    // The same for nobody: for what else stands there.
    Found survey();

    // As far as it was read. Numbers are those of the file.
    const std::map<uint16_t, Channel>& channels() const { return channels_; }
    const std::vector<Attachment>& attachments() const { return attachments_; }
    const std::vector<Metadata>& metadata() const { return metadata_; }

private:
    struct Head {
        Opcode opcode;
        uint64_t length;
    };

    View at(uint64_t place, uint64_t size);
    std::optional<Head> head_at(uint64_t place);
    bool take_record(Opcode opcode, View content, const Take& take, Found& found);
    bool take_chunk(View content, const Take& take, Found& found);
    void take_schema(View content);
    void take_channel(View content);
    void take_attachment(View content);
    std::optional<uint64_t> next_chunk(uint64_t from);
    std::optional<uint64_t> counted_messages();

    View file_;
    std::map<uint16_t, Channel> schemas_;  // only the schema's texts
    std::map<uint16_t, Channel> channels_;
    std::vector<Attachment> attachments_;
    std::vector<Metadata> metadata_;
};

}  // namespace mcap

#endif
