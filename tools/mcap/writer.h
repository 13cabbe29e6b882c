// Writes an MCAP file of chunks with their indexes, complete at all times. It allocates nothing
// between open() and close(), but for what the system needs to open a file.
#ifndef TOOLS_MCAP_WRITER_H
#define TOOLS_MCAP_WRITER_H

#include <string>

#include "tools/mcap/complete_file.h"

namespace mcap {

struct Capacity {
    size_t chunk_bytes = size_t{4} << 20;  // of messages between two flushes
    size_t chunk_messages = 65536;
    size_t chunks = 40000;  // of a file
};

class Writer {
public:
    explicit Writer(Contents contents, const Capacity& capacity = {});

    // All of these return 0 or an errno. Begins a file; EEXIST when there is one of that name.
    int open(const std::string& path);
    // Keeps a message for the next flush. False: there is no room, so flush first.
    bool add(const Message& message);
    // Writes what was added, in one chunk. After a failure the file is as it was, the messages are
    // kept, and another flush may do better. ENOENT: the file was removed.
    int flush();
    // Flushes, and ends the file. After a failure it is closed and complete all the same; then
    // pending() tells what is not in it.
    int close();
    // Closes a file that was removed. What was added is kept for the next one.
    void abandon();

    bool is_open() const { return file_.is_open(); }
    // The index takes no further chunk: close the file and open another.
    bool full() const { return totals_.chunks >= capacity_.chunks; }
    uint64_t messages() const { return totals_.messages; }  // in the file
    uint64_t pending() const { return entries_.size(); }
    uint64_t bytes() const { return file_.data_end(); }

private:
    struct Entry {
        uint16_t channel;
        uint64_t time;
        uint64_t offset;  // in the chunk's records
    };
    struct Totals {
        uint64_t messages = 0;
        uint32_t chunks = 0;
        uint64_t first = UINT64_MAX;
        uint64_t last = 0;
    };

    void pack_preamble();
    void pack_summary_head();
    void begin_chunk();
    void finish_chunk();
    void pack_chunk_head();
    uint64_t pack_message_indexes();
    void account();
    Summary summary();
    int write_chunk();

    const Contents contents_;
    const Capacity capacity_;
    CompleteFile file_;

    Bytes chunk_;  // its head, messages, and on its way to the file its message indexes
    std::vector<Entry> entries_;
    std::vector<uint64_t> chunk_counts_;  // messages of each channel in the chunk
    uint64_t chunk_first_ = 0;
    uint64_t chunk_last_ = 0;

    Bytes preamble_;
    Bytes summary_head_;
    Bytes index_;  // of all chunks
    Bytes statistics_;
    Totals totals_;
    std::vector<uint64_t> counts_;  // messages of each channel in the file
};

}  // namespace mcap

#endif
