#include "tools/mcap/writer.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <functional>

#include "tools/mcap/crc32.h"

namespace mcap {
namespace {

constexpr size_t kChannelEntry = 10;  // a channel's number and a u64
constexpr size_t kMessageEntry = 16;
constexpr size_t kChunkEntry = kRecordHead + 64;  // and an entry for each channel

uint64_t realtime_ns() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

}  // namespace

Writer::Writer(Contents contents, const Capacity& capacity)
    : contents_(std::move(contents)),
      capacity_(capacity),
      chunk_counts_(contents_.channels.size() + 1),
      counts_(contents_.channels.size() + 1) {
    const size_t channels = contents_.channels.size();
    chunk_.reserve(capacity_.chunk_bytes + capacity_.chunk_messages * kMessageEntry +
                   channels * 32 + kRecordHead + kChunkHead);
    entries_.reserve(capacity_.chunk_messages);
    index_.reserve(capacity_.chunks * (kChunkEntry + channels * kChannelEntry));
    statistics_.reserve(64 + channels * kChannelEntry);
    pack_preamble();
    pack_summary_head();
    begin_chunk();
}

// ---- What each file begins with ----------------------------------------------------------------

void Writer::pack_preamble() {
    Packer pack(preamble_);
    pack.bytes(kMagic.data(), kMagic.size());
    const size_t header = pack.begin(Opcode::header);
    pack.text("").text("vexo");
    pack.end(header);
    uint16_t number = 0;
    for (const Channel& channel : contents_.channels) {
        pack_schema(preamble_, ++number, channel);
        pack_channel(preamble_, number, channel);
    }
}

// Schemas and channels once more, and where attachments and metadata stand.
void Writer::pack_summary_head() {
    uint16_t number = 0;
    for (const Channel& channel : contents_.channels) {
        pack_schema(summary_head_, ++number, channel);
    }
    number = 0;
    for (const Channel& channel : contents_.channels) {
        pack_channel(summary_head_, ++number, channel);
    }
    Packer pack(summary_head_);
    const uint64_t now = realtime_ns();
    for (const Attachment& attachment : contents_.attachments) {
        const uint64_t at = preamble_.size();
        pack_attachment(preamble_, now, attachment);
        const size_t content = pack.begin(Opcode::attachment_index);
        pack.number(at).number(preamble_.size() - at).number(now).number(now);
        pack.number(uint64_t{attachment.data.size()});
        pack.text(attachment.name).text(attachment.media_type);
        pack.end(content);
    }
    for (const Metadata& metadata : contents_.metadata) {
        const uint64_t at = preamble_.size();
        pack_metadata(preamble_, metadata);
        const size_t content = pack.begin(Opcode::metadata_index);
        pack.number(at).number(preamble_.size() - at).text(metadata.name);
        pack.end(content);
    }
}

int Writer::open(const std::string& path) {
    totals_ = {};
    std::fill(counts_.begin(), counts_.end(), 0);
    index_.clear();
    return file_.create(path, preamble_, summary());
}

Summary Writer::summary() {
    statistics_.clear();
    Packer pack(statistics_);
    const auto channels = static_cast<uint32_t>(contents_.channels.size());
    const size_t content = pack.begin(Opcode::statistics);
    pack.number(totals_.messages).number(static_cast<uint16_t>(channels)).number(channels);
    pack.number(static_cast<uint32_t>(contents_.attachments.size()));
    pack.number(static_cast<uint32_t>(contents_.metadata.size())).number(totals_.chunks);
    pack.number(totals_.messages == 0 ? 0 : totals_.first).number(totals_.last);
    pack.number(static_cast<uint32_t>(channels * kChannelEntry));
    for (uint16_t channel = 1; channel <= channels; ++channel) {
        pack.number(channel).number(counts_[channel]);
    }
    pack.end(content);
    return {summary_head_, index_, statistics_};
}

// ---- Chunks ------------------------------------------------------------------------------------

void Writer::begin_chunk() {
    chunk_.assign(kRecordHead + kChunkHead, 0);
    entries_.clear();
    std::fill(chunk_counts_.begin(), chunk_counts_.end(), 0);
    chunk_first_ = UINT64_MAX;
    chunk_last_ = 0;
}

bool Writer::add(const Message& message) {
    const uint64_t length = kMessageHead + message.data.size();
    const uint64_t used = chunk_.size() - kRecordHead - kChunkHead;
    if (entries_.size() == capacity_.chunk_messages ||
        (!entries_.empty() && used + kRecordHead + length > capacity_.chunk_bytes)) {
        return false;
    }
    chunk_first_ = std::min(chunk_first_, message.log_time);
    chunk_last_ = std::max(chunk_last_, message.log_time);
    entries_.push_back({message.channel, message.log_time, used});
    ++chunk_counts_[message.channel];
    Packer pack(chunk_);
    pack.number(static_cast<uint8_t>(Opcode::message)).number(length).number(message.channel);
    pack.number(message.sequence).number(message.log_time).number(message.publish_time);
    pack.bytes(message.data.data(), message.data.size());
    return true;
}

void Writer::pack_chunk_head() {
    const uint64_t records = chunk_.size() - kRecordHead - kChunkHead;
    const uint32_t crc = crc32(View(chunk_).subspan(kRecordHead + kChunkHead));
    statistics_.clear();  // not in use at the moment
    Packer head(statistics_);
    head.number(static_cast<uint8_t>(Opcode::chunk)).number(uint64_t{chunk_.size() - kRecordHead});
    head.number(chunk_first_).number(chunk_last_).number(records).number(crc);
    head.text("").number(records);
    std::copy(statistics_.begin(), statistics_.end(), chunk_.begin());
}

// Behind the chunk, and their places to its entry of the index. Returns how long they are.
uint64_t Writer::pack_message_indexes() {
    const size_t begin = chunk_.size();
    for (uint16_t channel = 1; channel < chunk_counts_.size(); ++channel) {
        if (chunk_counts_[channel] == 0) {
            continue;
        }
        Packer(index_).number(channel).number(file_.data_end() + chunk_.size());
        Packer pack(chunk_);
        const size_t content = pack.begin(Opcode::message_index);
        pack.number(channel);
        pack.number(static_cast<uint32_t>(chunk_counts_[channel] * kMessageEntry));
        for (const Entry& entry : entries_) {
            if (entry.channel == channel) {
                pack.number(entry.time).number(entry.offset);
            }
        }
        pack.end(content);
    }
    return chunk_.size() - begin;
}

// Completes the chunk, and gives it its entry in the index.
void Writer::finish_chunk() {
    pack_chunk_head();
    const uint64_t length = chunk_.size();
    const uint64_t records = length - kRecordHead - kChunkHead;
    Packer pack(index_);
    const size_t content = pack.begin(Opcode::chunk_index);
    pack.number(chunk_first_).number(chunk_last_).number(file_.data_end()).number(length);
    const auto channels =
        chunk_counts_.size() -
        static_cast<size_t>(std::count(chunk_counts_.begin(), chunk_counts_.end(), 0));
    pack.number(static_cast<uint32_t>(channels * kChannelEntry));
    const uint64_t indexes = pack_message_indexes();
    pack.number(indexes).text("").number(records).number(records);
    pack.end(content);
}

void Writer::account() {
    totals_.messages += entries_.size();
    totals_.chunks += 1;
    totals_.first = std::min(totals_.first, chunk_first_);
    totals_.last = std::max(totals_.last, chunk_last_);
    std::transform(counts_.begin(), counts_.end(), chunk_counts_.begin(), counts_.begin(),
                   std::plus<>());
}

int Writer::write_chunk() {
    finish_chunk();
    account();
    const int error = file_.add(chunk_);
    return error != 0 ? error : file_.commit(summary());
}

int Writer::flush() {
    if (file_.removed()) {
        return ENOENT;
    }
    if (entries_.empty()) {
        return 0;
    }
    const size_t chunk_size = chunk_.size();
    const size_t channels = contents_.channels.size();
    int error = file_.make_room(chunk_size + entries_.size() * kMessageEntry + channels * 32,
                                kChunkEntry + channels * kChannelEntry, summary());
    if (error != 0) {
        return error;
    }
    const Totals before = totals_;
    const size_t index_size = index_.size();
    error = write_chunk();
    if (error == 0) {
        begin_chunk();
        return 0;
    }
    totals_ = before;
    std::transform(counts_.begin(), counts_.end(), chunk_counts_.begin(), counts_.begin(),
                   std::minus<>());
    index_.resize(index_size);
    chunk_.resize(chunk_size);
    return error;
}

int Writer::close() {
    const int error = flush();
    const int closing = file_.close(summary());
    return error != 0 ? error : closing;
}

void Writer::abandon() {
    file_.drop();
}

}  // namespace mcap
