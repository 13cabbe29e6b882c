// A file of data with a summary at its end, which is complete at all times: whenever the process is
// killed, the disk is full or a write fails, the summary is there and names only data that is
// there.
//
//   data, data, ...                                         grows
//   filler                                                  a hole: takes no room on the disk
//   summary, filler          summary, filler                two slots, written by turns
//   footer, magic                                           the footer names one of the summaries
//
// New data goes into the hole, and a summary that knows of it into the slot that is not in use.
// Nobody sees either until the footer names that slot, and the footer lies within one page, which
// the kernel writes whole or not at all when a process is killed. Where the hole is used up, a
// footer further behind takes over in the same way. close() puts the summary right behind the data
// and cuts off the rest.
#ifndef TOOLS_MCAP_COMPLETE_FILE_H
#define TOOLS_MCAP_COMPLETE_FILE_H

#include <string>

#include "tools/mcap/record.h"

namespace mcap {

// Head and index of a file only ever grow at their ends.
struct Summary {
    View head;
    View index;
    View statistics;
    size_t size() const { return head.size() + index.size() + statistics.size(); }
};

class CompleteFile {
public:
    CompleteFile() = default;
    ~CompleteFile();
    CompleteFile(const CompleteFile&) = delete;
    CompleteFile& operator=(const CompleteFile&) = delete;

    // All of these return 0 or an errno; after a failure the file is as complete as before, and the
    // call may be repeated. EEXIST when there is a file of that name.
    int create(const std::string& path, View begin, const Summary& summary);
    // Makes room for data of so many bytes, and a summary that grows by no more than
    // `summary_more`. The summary is that of the data until now.
    int make_room(size_t data, size_t summary_more, const Summary& summary);
    // Adds data, for which there is room, and then the summary that knows of it.
    int add(View data);
    int commit(const Summary& summary);
    // Makes an ordinary file of it. It is closed after a failure, too.
    int close(const Summary& summary);
    // Closes it as it is.
    void drop();

    bool is_open() const { return descriptor_ >= 0; }
    // Nobody will find it any more.
    bool removed() const;
    // Where the next data will stand.
    uint64_t data_end() const { return data_end_; }

private:
    struct Layout {
        uint64_t slots;      // where the first summary's room begins
        uint64_t slot_size;  // from it to the second
        uint64_t end;        // of the file
        uint64_t footer() const;
        uint64_t slot(int number) const {
            return slots + static_cast<uint64_t>(number) * slot_size;
        }
    };
    static constexpr int kNone = -1;

    bool fits(size_t data, size_t summary) const;
    Layout layout_for(size_t data, size_t summary) const;
    int move_behind(const Layout& next, const Summary& summary);
    int write_slot(int number, uint64_t footer, const Summary& summary);
    int write_footer(uint64_t footer, uint64_t slot);
    int write_filler();
    int write_tail(const Summary& summary);
    int write(View data, uint64_t at);
    void adopt(const Layout& layout);

    int descriptor_ = -1;
    Layout layout_{};
    uint64_t data_end_ = 0;
    uint64_t added_ = 0;        // bytes of data that no summary knows of yet
    int active_ = kNone;        // the slot that the footer names; kNone: one at an older place
    size_t known_[2] = {0, 0};  // how much of head and index the slots have
    Bytes scratch_ = Bytes(1024);
};

}  // namespace mcap

#endif
