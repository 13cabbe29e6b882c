#include "tools/mcap/complete_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "tools/mcap/crc32.h"

namespace mcap {
namespace {

constexpr uint64_t kPage = 4096;
constexpr uint64_t kFooterRoom = kFooterBytes + kMagic.size();
constexpr size_t kDataEndBytes = kRecordHead + 4;
constexpr uint64_t kLeastHole = uint64_t{256} << 10;
constexpr uint64_t kMostHole = uint64_t{32} << 20;

uint64_t page_behind(uint64_t at) {
    return (at + kPage - 1) / kPage * kPage;
}

// Chunks and attachments have checksums of their own, so that the data as a whole needs none.
void pack_data_end(Bytes& out) {
    Packer pack(out);
    const size_t content = pack.begin(Opcode::data_end);
    pack.number(uint32_t{0});
    pack.end(content);
}

// Passes over what stands between two places.
void pack_filler(Bytes& out, uint64_t from, uint64_t to) {
    Packer(out).number(static_cast<uint8_t>(Opcode::filler)).number(to - from - kRecordHead);
}

void pack_footer(Bytes& out, uint64_t summary, uint32_t crc) {
    Packer pack(out);
    const size_t content = pack.begin(Opcode::footer);
    pack.number(summary).number(uint64_t{0}).number(crc);
    pack.end(content);
    pack.bytes(kMagic.data(), kMagic.size());
}

}  // namespace

uint64_t CompleteFile::Layout::footer() const {
    return end - kFooterRoom;
}

CompleteFile::~CompleteFile() {
    if (is_open()) {
        drop();
    }
}

int CompleteFile::write(View data, uint64_t at) {
    while (!data.empty()) {
        const ssize_t written =
            pwrite(descriptor_, data.data(), data.size(), static_cast<off_t>(at));
        if (written < 0 && errno != EINTR) {
            return errno;
        }
        const auto size = static_cast<size_t>(std::max<ssize_t>(written, 0));
        data = data.subspan(size);
        at += size;
    }
    return 0;
}

void CompleteFile::adopt(const Layout& layout) {
    layout_ = layout;
    active_ = kNone;
    known_[0] = known_[1] = 0;
}

// It gets its name when it is complete.
int CompleteFile::create(const std::string& path, View begin, const Summary& summary) {
    const std::string unfinished = path + ".part";
    descriptor_ = open(unfinished.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (descriptor_ < 0) {
        return errno;
    }
    data_end_ = 0;
    adopt(layout_for(begin.size(), summary.size()));
    int error = add(begin);
    if (error == 0) {
        error = commit(summary);
    }
    if (error == 0 &&
        renameat2(AT_FDCWD, unfinished.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) != 0) {
        error = errno;
    }
    if (error != 0) {
        drop();
        unlink(unfinished.c_str());
    }
    return error;
}

void CompleteFile::drop() {
    ::close(std::exchange(descriptor_, -1));
}

bool CompleteFile::removed() const {
    struct stat status {};
    return fstat(descriptor_, &status) == 0 && status.st_nlink == 0;
}

// ---- Where things stand ------------------------------------------------------------------------

// A hole that grows with the file, and slots for twice the summary: they seldom move.
CompleteFile::Layout CompleteFile::layout_for(size_t data, size_t summary) const {
    Layout layout{};
    layout.slots = page_behind(data_end_ + data + std::clamp(data_end_ / 4, kLeastHole, kMostHole));
    layout.slot_size = page_behind(2 * summary + kPage);
    layout.end = layout.slots + 2 * layout.slot_size + kPage;
    return layout;
}

bool CompleteFile::fits(size_t data, size_t summary) const {
    return active_ != kNone && data_end_ + data + kRecordHead <= layout_.slots &&
           kDataEndBytes + summary + kRecordHead <= layout_.slot_size;
}

int CompleteFile::make_room(size_t data, size_t summary_more, const Summary& summary) {
    const size_t summary_size = summary.size() + summary_more;
    added_ = 0;
    int error = 0;
    while (error == 0 && !fits(data, summary_size)) {
        if (active_ != kNone) {
            error = move_behind(layout_for(data, summary_size), summary);
        }
        if (error == 0) {
            error = commit(summary);
        }
        if (error == 0) {
            error = write_filler();
        }
    }
    return error;
}

// The slot that is not in use is written to reach up to the new end, and a footer there names it.
int CompleteFile::move_behind(const Layout& next, const Summary& summary) {
    const int other = 1 - active_;
    known_[other] = 0;
    int error = write_slot(other, next.footer(), summary);
    known_[other] = 0;  // it reaches beyond the footer that counts until the next line
    if (error == 0) {
        error = write_footer(next.footer(), layout_.slot(other));
    }
    if (error == 0) {
        adopt(next);
    }
    return error;
}

// ---- Data and summaries ------------------------------------------------------------------------

int CompleteFile::add(View data) {
    added_ = data.size();
    const int error = write(data, data_end_);
    return error != 0 ? error : write_filler();
}

int CompleteFile::commit(const Summary& summary) {
    const int next = active_ == 0 ? 1 : 0;
    int error = write_slot(next, layout_.footer(), summary);
    if (error == 0) {
        error = write_footer(layout_.footer(), layout_.slot(next));
    }
    if (error == 0) {
        active_ = next;
        data_end_ += std::exchange(added_, 0);
    }
    return error;
}

// For readers that go from record to record. The hole's end may come to lie elsewhere, so each new
// data brings the filler behind it along.
int CompleteFile::write_filler() {
    scratch_.clear();
    pack_filler(scratch_, data_end_ + added_, layout_.slots);
    return write(scratch_, data_end_ + added_);
}

int CompleteFile::write_slot(int number, uint64_t footer, const Summary& summary) {
    const uint64_t begin = layout_.slot(number);
    size_t known = known_[number];
    uint64_t at = begin + kDataEndBytes;
    int error = 0;
    if (known == 0) {
        scratch_.clear();
        pack_data_end(scratch_);
        error = write(scratch_, begin);
        error = error != 0 ? error : write(summary.head, at);
        known = summary.head.size();
    }
    const View news = summary.index.subspan(known - summary.head.size());
    error = error != 0 ? error : write(news, at + known);
    at += known + news.size();
    scratch_.assign(summary.statistics.begin(), summary.statistics.end());
    pack_filler(scratch_, at + scratch_.size(), footer);
    error = error != 0 ? error : write(scratch_, at);
    if (error == 0) {
        known_[number] = known + news.size();
    }
    return error;
}

int CompleteFile::write_footer(uint64_t footer, uint64_t slot) {
    scratch_.clear();
    pack_footer(scratch_, slot + kDataEndBytes, 0);
    return write(scratch_, footer);
}

// The checksum of a summary counts the footer up to itself.
int CompleteFile::write_tail(const Summary& summary) {
    Bytes tail;
    pack_data_end(tail);
    for (const View part : {summary.head, summary.index, summary.statistics}) {
        tail.insert(tail.end(), part.begin(), part.end());
    }
    pack_footer(tail, data_end_ + kDataEndBytes, 0);
    const size_t crc_at = tail.size() - kMagic.size() - 4;
    const uint32_t crc = crc32(View(tail).subspan(kDataEndBytes, crc_at - kDataEndBytes));
    std::memcpy(tail.data() + crc_at, &crc, sizeof crc);
    int error = make_room(tail.size(), 0, summary);
    error = error != 0 ? error : write(tail, data_end_);
    if (error == 0 && ftruncate(descriptor_, static_cast<off_t>(data_end_ + tail.size())) != 0) {
        error = errno;
    }
    return error;
}

int CompleteFile::close(const Summary& summary) {
    int error = write_tail(summary);
    if (error != 0) {
        write_filler();  // where the tail was begun
    }
    if (fsync(descriptor_) != 0 && error == 0 && errno != EINVAL) {
        error = errno;
    }
    drop();
    return error;
}

}  // namespace mcap
