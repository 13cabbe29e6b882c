// The registry of handles: who is registered, where a handle's state is, which of it is still
// there.
#ifndef CLIENT_REGISTRY_H
#define CLIENT_REGISTRY_H

#include "client/dataspace.h"
#include "client/output_store.h"
#include "log/report.h"

namespace vexo {

// A handle as the library's own code sees it. Empty when the handle is not registered or its
// dataspace has been freed: a freed handle's slot can stay visible to get_vexo_dataspace().
struct Registration {
    Dataspace* dataspace = nullptr;
    StoreSequence* store_sequence = nullptr;

    explicit operator bool() const { return dataspace != nullptr; }
    Dataspace* operator->() const { return dataspace; }
    Dataspace& operator*() const { return *dataspace; }
};

// Handle 0 is reported with "VexoHandle is null".
Registration find_registration(uint32_t handle);

// The same, reporting an unknown handle in one of the two ways that the interface has.
Registration find_or_report_not_found(Caller caller);  // prints and logs "---VexoHandle not found"
Registration find_or_record_null(Caller caller);       // logs " Error: vexoHandle is NULL"

// Takes the handle from the list, and lets the lookups see as many slots as the list has handles.
void unregister(uint32_t handle);
// Lets the lookups see one slot fewer.
void drop_last_slot();

// Frees the dataspace of a handle whose slot may stay visible.
void free_dataspace(uint32_t handle);

}  // namespace vexo

#endif
