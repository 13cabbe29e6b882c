#include "tools/mcap/record.h"

#include "tools/mcap/crc32.h"

namespace mcap {

Packer& Packer::texts(const Texts& texts) {
    uint32_t size = 0;
    for (const auto& [key, value] : texts) {
        size += static_cast<uint32_t>(8 + key.size() + value.size());
    }
    number(size);
    for (const auto& [key, value] : texts) {
        text(key).text(value);
    }
    return *this;
}

Texts Unpacker::texts() {
    Unpacker entries(bytes(number<uint32_t>()));
    Texts result;
    while (entries.ok() && !entries.empty()) {
        const std::string key = entries.text();
        result[key] = entries.text();
    }
    ok_ = ok_ && entries.ok();
    return result;
}

void pack_schema(Bytes& out, uint16_t number, const Channel& channel) {
    Packer pack(out);
    const size_t content = pack.begin(Opcode::schema);
    pack.number(number).text(channel.schema_name).text(channel.schema_encoding);
    pack.text(channel.schema);
    pack.end(content);
}

// Each channel has a schema of its own, of the same number.
void pack_channel(Bytes& out, uint16_t number, const Channel& channel) {
    Packer pack(out);
    const size_t content = pack.begin(Opcode::channel);
    pack.number(number).number(number).text(channel.topic).text(channel.message_encoding);
    pack.texts(channel.metadata);
    pack.end(content);
}

void pack_attachment(Bytes& out, uint64_t time, const Attachment& attachment) {
    Packer pack(out);
    const size_t content = pack.begin(Opcode::attachment);
    pack.number(time).number(time).text(attachment.name).text(attachment.media_type);
    pack.number(uint64_t{attachment.data.size()});
    pack.bytes(attachment.data.data(), attachment.data.size());
    pack.number(crc32(View(out).subspan(content)));
    pack.end(content);
}

void pack_metadata(Bytes& out, const Metadata& metadata) {
    Packer pack(out);
    const size_t content = pack.begin(Opcode::metadata);
    pack.text(metadata.name).texts(metadata.texts);
    pack.end(content);
}

}  // namespace mcap
