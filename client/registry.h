// The registry of handles: who is registered, where a handle's state is, which of it is still
// there.
#ifndef CLIENT_REGISTRY_H
#define CLIENT_REGISTRY_H

#include "base/cancellation.h"
#include "client/handle_state.h"
#include "log/report.h"

namespace vexo {

// A call on a handle, for the time that an object of this lives: the dataspace stays where it is,
// and the thread is not cancelled but in the waits that allow it. Empty when the handle is not
// registered or at its end: a freed handle's slot can stay visible to get_vexo_dataspace().
class Registration {
public:
    explicit Registration(uint32_t handle);
    // Has an unknown handle reported, handle 0 with "VexoHandle is null" before that.
    Registration(Caller caller, void (*report_unknown)(Caller));
    ~Registration() { leave(); }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

    explicit operator bool() const { return state_ != nullptr; }
    Dataspace* operator->() const { return state_->dataspace(); }
    Dataspace& operator*() const { return *state_->dataspace(); }
    HandleState& state() const { return *state_; }
    const CancellationHold& hold() const { return hold_; }

    // For a thread that is cancelled, and so never gets to the destructor.
    void leave() const {
        if (state_ != nullptr) {
            state_->leave();
        }
    }

private:
    CancellationHold hold_;
    HandleState* state_;
};

// Prints and logs "VexoHandle is null" for handle 0.
void report_if_null(uint32_t handle);

// An unknown handle is reported in one of the two ways that the interface has.
Registration find_or_report_not_found(Caller caller);  // prints and logs "---VexoHandle not found"
Registration find_or_record_null(Caller caller);       // logs " Error: vexoHandle is NULL"

// For the receive thread, which keeps teardown off by its pass: null when the handle is gone.
// Handle 0 is reported.
HandleState* find_live_state(uint32_t handle);

// Takes the handle from the list, and lets the lookups see as many slots as the list has handles.
void unregister(uint32_t handle);
// Lets the lookups see one slot fewer.
void drop_last_slot();

}  // namespace vexo

#endif
