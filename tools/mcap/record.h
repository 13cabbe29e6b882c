// The records that an MCAP file consists of: an opcode, a length, and fields, little-endian.
#ifndef TOOLS_MCAP_RECORD_H
#define TOOLS_MCAP_RECORD_H

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace mcap {

static_assert(std::endian::native == std::endian::little);

using Bytes = std::vector<uint8_t>;
using View = std::span<const uint8_t>;
using Texts = std::map<std::string, std::string>;

inline constexpr std::array<uint8_t, 8> kMagic = {0x89, 'M', 'C', 'A', 'P', '0', '\r', '\n'};

enum class Opcode : uint8_t {
    header = 0x01,
    footer = 0x02,
    schema = 0x03,
    channel = 0x04,
    message = 0x05,
    chunk = 0x06,
    message_index = 0x07,
    chunk_index = 0x08,
    attachment = 0x09,
    attachment_index = 0x0A,
    statistics = 0x0B,
    metadata = 0x0C,
    metadata_index = 0x0D,
    data_end = 0x0F,
    filler = 0x80,  // ours: says nothing, and readers pass over it
};

inline constexpr size_t kRecordHead = 9;  // opcode and length
inline constexpr size_t kFooterBytes = kRecordHead + 20;
inline constexpr size_t kMessageHead = 22;  // of a message's content, before its data
inline constexpr size_t kChunkHead = 40;    // of a chunk's content, without compression

// One row of data in a file, under a topic, with the text that says what it is made of.
struct Channel {
    std::string topic;
    std::string schema_name;
    std::string schema;
    Texts metadata;
    std::string message_encoding = "cdr";
    std::string schema_encoding = "ros2msg";
};

struct Attachment {
    std::string name;
    std::string media_type;
    std::string data;
};

struct Metadata {
    std::string name;
    Texts texts;
};

// What stands in a file beside its messages.
struct Contents {
    std::vector<Channel> channels;  // numbered 1, 2, ...
    std::vector<Attachment> attachments;
    std::vector<Metadata> metadata;
};

struct Message {
    uint16_t channel;  // the number of its channel in the file
    uint32_t sequence;
    uint64_t log_time;      // ns since the epoch
    uint64_t publish_time;  // the same
    View data;
};

// Appends fields to a buffer. A buffer with enough capacity is not allocated anew.
class Packer {
public:
    explicit Packer(Bytes& out) : out_(out) {}

    template <typename T>
    requires std::is_integral_v<T> Packer& number(T value) { return bytes(&value, sizeof value); }
    Packer& bytes(const void* data, size_t size) {
        const size_t at = out_.size();
        out_.resize(at + size);
        if (size > 0) {
            std::memcpy(out_.data() + at, data, size);
        }
        return *this;
    }
    Packer& text(std::string_view text) {
        return number(static_cast<uint32_t>(text.size())).bytes(text.data(), text.size());
    }
    Packer& texts(const Texts& texts);
    // A record's head; its length is put in by end().
    size_t begin(Opcode opcode) {
        number(static_cast<uint8_t>(opcode)).number(uint64_t{0});
        return out_.size();
    }
    void end(size_t content) {
        const uint64_t length = out_.size() - content;
        std::memcpy(out_.data() + content - 8, &length, sizeof length);
    }

private:
    Bytes& out_;
};

// Takes fields out of a record. What is not there reads as zero and spoils the reader.
class Unpacker {
public:
    explicit Unpacker(View data) : data_(data) {}

    template <typename T>
    requires std::is_integral_v<T> T number() {
        T value{};
        const View source = bytes(sizeof value);
        if (ok_) {
            std::memcpy(&value, source.data(), sizeof value);
        }
        return value;
    }
    View bytes(uint64_t size) {
        ok_ = ok_ && size <= data_.size();
        if (!ok_) {
            return {};
        }
        const View result = data_.first(size);
        data_ = data_.subspan(size);
        return result;
    }
    std::string text() {
        const View source = bytes(number<uint32_t>());
        return {source.begin(), source.end()};
    }
    Texts texts();
    bool ok() const { return ok_; }
    bool empty() const { return data_.empty(); }
    size_t left() const { return data_.size(); }

private:
    View data_;
    bool ok_ = true;
};

void pack_schema(Bytes& out, uint16_t number, const Channel& channel);
void pack_channel(Bytes& out, uint16_t number, const Channel& channel);
void pack_attachment(Bytes& out, uint64_t time, const Attachment& attachment);
void pack_metadata(Bytes& out, const Metadata& metadata);

}  // namespace mcap

#endif
