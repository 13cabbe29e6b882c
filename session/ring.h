// The latest packages of a stream. One thread writes and never waits; any number of readers copy,
// and notice when what they copied was overwritten meanwhile.
#ifndef SESSION_RING_H
#define SESSION_RING_H

#include <atomic>
#include <memory>

#include "session/alarm.h"
#include "session/signal.h"
#include "session/time.h"

namespace vexo::session {

class Ring {
public:
    Ring() = default;
    ~Ring();
    Ring(const Ring&) = delete;
    Ring& operator=(const Ring&) = delete;

    // Room for so many records, all of it in memory. False: there is none.
    bool allocate(size_t record_size, size_t capacity);
    size_t record_size() const { return record_size_; }
    size_t capacity() const { return capacity_; }

    // ---- The writer.

    // Where the next record goes. Until it is published it must be written whole.
    uint8_t* begin();
    void publish();

    // ---- Readers, any thread.

    // The number of the latest record; 0: none yet.
    uint64_t newest() const { return newest_.load(std::memory_order_acquire); }
    // The number of the oldest that is safe to read for a while.
    uint64_t oldest() const;
    // Copies up to `count` records from number `*next` on, and moves it behind them. Adds to `lost`
    // what it had to pass over. Returns how many it copied.
    size_t read(uint64_t& next, uint8_t* into, size_t count, uint64_t& lost) const;
    bool read_newest(uint8_t* into) const;

    // Waits for record `number`. False: not in time, or `ended` holds, which is looked at when the
    // readers are woken.
    template <typename Ended>
    bool wait(uint64_t number, Nanoseconds deadline, Ended ended) const {
        published_.wait_until(deadline, [&] { return newest() >= number || ended(); });
        return newest() >= number;
    }
    // Sets the alarm off once record `number` is there, at once if it is.
    void arm(Ref<Alarm> alarm, uint64_t number);
    // Wakes all readers, that they may look whether it has ended.
    void wake();

private:
    const uint8_t* record(uint64_t number) const {
        return memory_ + (number % capacity_) * record_size_;
    }

    uint8_t* memory_ = nullptr;
    size_t bytes_ = 0;
    size_t record_size_ = 0;
    size_t capacity_ = 1;
    std::atomic<uint64_t> claimed_{0};  // its slot may be being written
    std::atomic<uint64_t> newest_{0};
    Signal published_;
    AlarmList armed_;
};

}  // namespace vexo::session

#endif
