#include "client/registry.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "client/vexo.h"

VexoHandleSlot VexoHandleData[VEXO_MAX_HANDLES];
uint32_t VexoHandlelist[1 + VEXO_MAX_HANDLES];
int32_t VexoHandleData_num;

namespace vexo {

namespace {

// The states of the slots. A slot can be filled again while the handle in it lives on, out of
// sight; it then gets a further state.
HandleState first_states[VEXO_MAX_HANDLES];
std::atomic<HandleState*> slot_states[VEXO_MAX_HANDLES];

// Failed connections and teardown move the number without regard to the slots.
int visible_slots() {
    return std::clamp(shared(VexoHandleData_num).load(std::memory_order_acquire), 0,
                      VEXO_MAX_HANDLES);
}

// The last visible slot of a handle, or -1.
int find_slot(uint32_t handle) {
    int found = -1;
    for (int i = 0, n = visible_slots(); i < n; ++i) {
        if (VexoHandleData[i].handle == handle) {
            found = i;
        }
    }
    return found;
}

// The state of a visible slot, or null.
HandleState* find_state(uint32_t handle) {
    const int slot = handle != 0 ? find_slot(handle) : -1;
    return slot >= 0 ? slot_states[slot].load(std::memory_order_acquire) : nullptr;
}

uint32_t make_free_number(const char* ip) {
    uint32_t number = get_time_multiply_sum(ip);
    while (check_Handle(number) != 0) {
        number = get_time_multiply_sum(ip);
        report({0, "vexo_create_handle"}, "VexoHandle Requesting...");
    }
    return number;
}

// A state for a slot that is to be filled; null without memory.
HandleState* free_state(int index) {
    HandleState* state = slot_states[index];
    if (state == nullptr) {
        state = &first_states[index];
    }
    return state->is_free() ? state : new (std::nothrow) HandleState;
}

// All of its pages are touched now, so that the first cycles meet no page fault.
Dataspace* allocate_dataspace() {
    void* block = std::malloc(sizeof(Dataspace));
    if (block != nullptr) {
        explicit_bzero(block, sizeof(Dataspace));
    }
    return static_cast<Dataspace*>(block);
}

void fill_slot(int index, uint32_t handle, const char* ip, Dataspace* dataspace) {
    VexoHandleSlot& slot = VexoHandleData[index];
    slot = {};
    slot.handle = handle;
    slot.dataspace = reinterpret_cast<uint8_t*>(dataspace);
    std::memcpy(slot.ip, ip, strnlen(ip, sizeof slot.ip));
    slot.index = static_cast<uint8_t>(index);

    std::memcpy(dataspace->ip, ip, strnlen(ip, sizeof dataspace->ip - 1));
    dataspace->handle = handle;
    sem_init(&dataspace->reply, 0, 0);
}

// A state may have become another handle's since the lookup.
bool is_of(const HandleState& state, uint32_t handle) {
    return state.dataspace()->handle == handle;
}

// Begins a call on the handle.
HandleState* enter(uint32_t handle) {
    HandleState* state = find_state(handle);
    if (state == nullptr || !state->enter()) {
        return nullptr;
    }
    if (!is_of(*state, handle)) {
        state->leave();
        return nullptr;
    }
    return state;
}

void report_not_found(Caller caller) {
    report(caller, "%s---VexoHandle not found", caller.function);
}

}  // namespace

void report_if_null(uint32_t handle) {
    if (handle == 0) {
        report({0, "get_vexo_dataspace"}, "VexoHandle is null");
    }
}

void record_null(Caller caller) {
    record(caller, "%s Error: vexoHandle is NULL", caller.function);
}

BriefRegistration::BriefRegistration(uint32_t handle) : state_(enter(handle)) {}

BriefRegistration::BriefRegistration(Caller caller, void (*report_unknown)(Caller))
    : BriefRegistration(caller.handle) {
    if (state_ == nullptr) {
        report_if_null(caller.handle);
        report_unknown(caller);
    }
}

HandleState* find_live_state(uint32_t handle) {
    report_if_null(handle);
    HandleState* state = find_state(handle);
    return state != nullptr && state->live() && is_of(*state, handle) ? state : nullptr;
}

const char* log_key(uint32_t handle) {
    const HandleState* state = find_state(handle);
    return state != nullptr && state->live() ? state->ip() : nullptr;
}

Registration find_or_report_not_found(Caller caller) {
    return {caller, report_not_found};
}

Registration find_or_record_null(Caller caller) {
    return {caller, record_null};
}

void unregister(uint32_t handle) {
    for (int i = 1, n = visible_slots(); i <= n; ++i) {
        if (VexoHandlelist[i] == handle) {
            VexoHandlelist[i] = 0;
            --VexoHandlelist[0];
        }
    }
    shared(VexoHandleData_num)
        .store(static_cast<int32_t>(VexoHandlelist[0]), std::memory_order_release);
}

void drop_last_slot() {
    shared(VexoHandleData_num).fetch_sub(1, std::memory_order_release);
}

}  // namespace vexo

using namespace vexo;

int32_t vexo_create_handle(uint32_t* handle, const char* ip) {
    if (VexoHandleData_num >= VEXO_MAX_HANDLES) {
        report({0, __func__}, "VexoHandleData_num is full");
        return -1;
    }
    const int index = visible_slots();
    const uint32_t number = make_free_number(ip);
    // In the list before there is memory: a number that gets none stays there, uncounted.
    VexoHandlelist[1 + index] = number;
    Dataspace* dataspace = allocate_dataspace();
    HandleState* state = dataspace != nullptr ? free_state(index) : nullptr;
    if (state == nullptr) {
        std::free(dataspace);
        report({number, __func__}, "malloc failed");
        return -1;
    }
    const char* address = ip != nullptr ? ip : "";
    fill_slot(index, number, address, dataspace);
    state->begin(dataspace, address);
    slot_states[index].store(state, std::memory_order_release);
    shared(VexoHandleData_num).store(index + 1, std::memory_order_release);
    ++VexoHandlelist[0];
    *handle = number;

    for (const uint32_t log_of : {number, 0u}) {
        record({log_of, __func__}, "\nip:%s,VexoHandle:%d", address, static_cast<int>(number));
    }
    return 0;
}

uint32_t check_Handle(uint32_t handle) {
    return find_slot(handle) >= 0 ? 1 : 0;
}

uint8_t* get_vexo_dataspace(uint32_t handle) {
    report_if_null(handle);
    const int slot = handle != 0 ? find_slot(handle) : -1;
    return slot >= 0 ? VexoHandleData[slot].dataspace : nullptr;
}
