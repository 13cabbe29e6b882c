#include "client/registry.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "client/vexo.h"

const char* VEXO_SDK_Version = "1.1.8";
VexoHandleSlot VexoHandleData[VEXO_MAX_HANDLES];
uint32_t VexoHandlelist[1 + VEXO_MAX_HANDLES];
int32_t VexoHandleData_num;

namespace vexo {

namespace {

// What a slot has beside its public record.
struct SlotPrivate {
    bool live;  // the dataspace is allocated
    StoreSequence store_sequence;
};

SlotPrivate slot_private[VEXO_MAX_HANDLES];

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

// As get_vexo_dataspace() answers: reports handle 0.
int look_up_slot(uint32_t handle) {
    if (handle == 0) {
        report({0, "get_vexo_dataspace"}, "VexoHandle is null");
        return -1;
    }
    return find_slot(handle);
}

uint32_t make_free_number(const char* ip) {
    uint32_t number = get_time_multiply_sum(ip);
    while (check_Handle(number) != 0) {
        number = get_time_multiply_sum(ip);
        report({0, "vexo_create_handle"}, "VexoHandle Requesting...");
    }
    return number;
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
    slot_private[index].live = true;

    std::memcpy(dataspace->ip, ip, strnlen(ip, sizeof dataspace->ip - 1));
    dataspace->handle = handle;
}

}  // namespace

const char* log_key(uint32_t handle) {
    const int slot = find_slot(handle);
    return slot >= 0 && slot_private[slot].live
               ? reinterpret_cast<Dataspace*>(VexoHandleData[slot].dataspace)->ip
               : nullptr;
}

Registration find_registration(uint32_t handle) {
    const int slot = look_up_slot(handle);
    if (slot < 0 || !slot_private[slot].live) {
        return {};
    }
    return {reinterpret_cast<Dataspace*>(VexoHandleData[slot].dataspace),
            &slot_private[slot].store_sequence};
}

Registration find_or_report_not_found(Caller caller) {
    const Registration found = find_registration(caller.handle);
    if (!found) {
        report(caller, "%s---VexoHandle not found", caller.function);
    }
    return found;
}

Registration find_or_record_null(Caller caller) {
    const Registration found = find_registration(caller.handle);
    if (!found) {
        record(caller, "%s Error: vexoHandle is NULL", caller.function);
    }
    return found;
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

void free_dataspace(uint32_t handle) {
    for (int i = 0; i < VEXO_MAX_HANDLES; ++i) {
        if (VexoHandleData[i].handle == handle && slot_private[i].live) {
            slot_private[i].live = false;
            std::free(VexoHandleData[i].dataspace);
        }
    }
}

}  // namespace vexo

using namespace vexo;

int32_t vexo_get_SDK_Version(uint8_t* buffer) {
    if (buffer == nullptr) {
        return -1;
    }
    std::memcpy(buffer, VEXO_SDK_Version, std::strlen(VEXO_SDK_Version));
    record({0, __func__}, "VEXO_SDK_Version: %s", VEXO_SDK_Version);
    return 0;
}

int32_t vexo_create_handle(uint32_t* handle, const char* ip) {
    if (VexoHandleData_num >= VEXO_MAX_HANDLES) {
        report({0, __func__}, "VexoHandleData_num is full");
        return -1;
    }
    const int index = visible_slots();
    const uint32_t number = make_free_number(ip);
    VexoHandlelist[1 + index] = number;
    Dataspace* dataspace = allocate_dataspace();
    if (dataspace == nullptr) {
        report({number, __func__}, "malloc failed");
        return -1;
    }
    const char* address = ip != nullptr ? ip : "";
    fill_slot(index, number, address, dataspace);
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
    const int slot = look_up_slot(handle);
    return slot >= 0 ? VexoHandleData[slot].dataspace : nullptr;
}
