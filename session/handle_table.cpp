#include "session/handle_table.h"

#include <array>
#include <mutex>

namespace vexo::session {

namespace {

// A handle: generation, row, kind. A row's word: generation, whether it is open, calls inside.
constexpr unsigned kKindBits = 4;
constexpr unsigned kRowBits = 14;
constexpr unsigned kGenerationBits = 31;
constexpr size_t kRows = size_t{1} << kRowBits;
constexpr uint64_t kOpen = uint64_t{1} << 32;
constexpr uint64_t kGenerationShift = 33;

struct Row {
    std::atomic<uint64_t> word;
    std::atomic<Object*> object;
    uint32_t next_free;  // 1 + row; 0: the end
};

struct Table {
    std::mutex mutex;  // of what follows
    uint32_t free = 0;
    uint32_t used = 0;  // rows that were ever in use
    std::array<Row, kRows> rows{};
};
constinit Table table;

constexpr size_t row_of(Handle handle) {
    return (handle >> kKindBits) & (kRows - 1);
}

constexpr uint64_t generation_of(Handle handle) {
    return handle >> (kKindBits + kRowBits);
}

constexpr uint64_t generation_in(uint64_t word) {
    return word >> kGenerationShift;
}

constexpr uint64_t next_generation(uint64_t generation) {
    return generation + 1 == uint64_t{1} << kGenerationBits ? 1 : generation + 1;
}

uint32_t take_row() {
    if (table.free != 0) {
        const uint32_t row = table.free - 1;
        table.free = table.rows[row].next_free;
        return row;
    }
    return table.used < kRows ? table.used++ : UINT32_MAX;
}

// The last call has left a closed handle.
void drop(size_t index) {
    Row& row = table.rows[index];
    Object* object = row.object.exchange(nullptr);
    {
        const std::lock_guard lock(table.mutex);
        row.next_free = table.free;
        table.free = static_cast<uint32_t>(index) + 1;
    }
    object->let_go();
}

void leave(size_t index) {
    const uint64_t before = table.rows[index].word.fetch_sub(1, std::memory_order_acq_rel);
    if ((before & kOpen) == 0 && static_cast<uint32_t>(before) == 1) {
        drop(index);
    }
}

bool enter(Handle handle) {
    std::atomic<uint64_t>& word = table.rows[row_of(handle)].word;
    uint64_t seen = word.load(std::memory_order_relaxed);
    do {
        if (generation_in(seen) != generation_of(handle) || (seen & kOpen) == 0) {
            return false;
        }
    } while (!word.compare_exchange_weak(seen, seen + 1, std::memory_order_acquire,
                                         std::memory_order_relaxed));
    return true;
}

}  // namespace

Handle add_handle(HandleKind kind, Object& object) {
    const std::lock_guard lock(table.mutex);
    const uint32_t index = take_row();
    if (index == UINT32_MAX) {
        return 0;
    }
    Row& row = table.rows[index];
    object.keep();
    row.object.store(&object, std::memory_order_relaxed);
    const uint64_t generation = next_generation(generation_in(row.word.load()));
    row.word.store(generation << kGenerationShift | kOpen, std::memory_order_release);
    return generation << (kKindBits + kRowBits) | Handle{index} << kKindBits |
           static_cast<Handle>(kind);
}

bool shut_handle(Handle handle) {
    if (!enter(handle)) {
        return false;
    }
    const uint64_t before = table.rows[row_of(handle)].word.fetch_and(~kOpen);
    leave(row_of(handle));
    return (before & kOpen) != 0;
}

uint32_t calls_inside(Handle handle) {
    const uint64_t word = table.rows[row_of(handle)].word.load(std::memory_order_acquire);
    return generation_in(word) == generation_of(handle) ? static_cast<uint32_t>(word) : 0;
}

void abandon_handles() {
    new (&table.mutex) std::mutex;  // whoever held it is not here
    table.free = 0;
    for (uint32_t index = 0; index < table.used; ++index) {
        Row& row = table.rows[index];
        row.word.store(generation_in(row.word.load()) << kGenerationShift);
        row.object.store(nullptr);
        row.next_free = table.free;
        table.free = index + 1;
    }
}

Call::Call(Handle handle, HandleKind kind) : handle_(handle) {
    const bool plausible = (handle & ((1U << kKindBits) - 1)) == static_cast<Handle>(kind);
    if (plausible && enter(handle)) {
        object_ = table.rows[row_of(handle)].object.load(std::memory_order_relaxed);
    }
}

Call::~Call() {
    if (object_ != nullptr) {
        leave(row_of(handle_));
    }
}

}  // namespace vexo::session
