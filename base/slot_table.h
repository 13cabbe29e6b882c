// Fixed rows that are handed out by index, lowest free one first.
#ifndef BASE_SLOT_TABLE_H
#define BASE_SLOT_TABLE_H

#include <atomic>
#include <cstdint>

namespace vexo {

// How a family answers a call on a row that is in range but not in use.
constexpr int32_t kAcceptFreeRow = 0;
constexpr int32_t kRefuseFreeRow = -1;

using InUseFlag = std::atomic<uint8_t>;

// A view of the two arrays that make a table. Requests are not guarded against each other. The
// flags are atomic so that threads that use one row may look at its flag at any time, and that a
// row is complete for whoever sees its flag set.
template <typename Row, int32_t rows>
class SlotTable {
public:
    constexpr SlotTable(InUseFlag (&in_use)[rows], Row (&row)[rows]) : in_use_(in_use), row_(row) {}

    static constexpr int32_t size() { return rows; }
    Row& operator[](int32_t index) const { return row_[index]; }
    bool in_use(int32_t index) const { return in_use_[index] != 0; }
    void mark(int32_t index) const { in_use_[index] = 1; }
    void release(int32_t index) const { in_use_[index] = 0; }

    void release_all() const {
        for (int32_t index = 0; index < rows; ++index) {
            release(index);
        }
    }

    // The lowest row not in use, or -1.
    int32_t lowest_free() const {
        for (int32_t index = 0; index < rows; ++index) {
            if (!in_use(index)) {
                return index;
            }
        }
        return -1;
    }

    // Prepares the lowest free row and marks it. Returns it, or -1 when none is free or `prepare`
    // fails.
    template <typename Prepare>
    int32_t request(Prepare prepare) const {
        const int32_t index = lowest_free();
        if (index < 0 || !prepare(row_[index])) {
            return -1;
        }
        mark(index);
        return index;
    }

    // The row, whether in use or not; null outside the table.
    Row* at(int32_t index) const { return index < 0 || index >= rows ? nullptr : &row_[index]; }

    // The row in use; null for any other index.
    Row* find(int32_t index) const {
        Row* const row = at(index);
        return row != nullptr && in_use(index) ? row : nullptr;
    }

    // The result of `act` on a row in use; -1 outside the table.
    template <typename Act>
    int32_t on_row(int32_t index, int32_t free_row_answer, Act act) const {
        if (at(index) == nullptr) {
            return -1;
        }
        return in_use(index) ? act(row_[index]) : free_row_answer;
    }

private:
    InUseFlag (&in_use_)[rows];
    Row (&row_)[rows];
};

}  // namespace vexo

#endif
