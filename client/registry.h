// The registry of handles: who is registered, where a handle's state is, which of it is still
// there.
#ifndef CLIENT_REGISTRY_H
#define CLIENT_REGISTRY_H

#include "base/cancellation.h"
#include "client/handle_state.h"
#include "log/report.h"

namespace vexo {

// A call on a handle, for the time that an object of this lives: the dataspace stays where it is.
// Empty when the handle is not registered or at its end: a freed handle's slot can stay visible to
// get_vexo_dataspace(). For calls without a cancellation point.
class BriefRegistration {
public:
    explicit BriefRegistration(uint32_t handle);
    // Has an unknown handle reported, handle 0 with "VexoHandle is null" before that.
    BriefRegistration(Caller caller, void (*report_unknown)(Caller));
    ~BriefRegistration() { leave(); }
    BriefRegistration(const BriefRegistration&) = delete;
    BriefRegistration& operator=(const BriefRegistration&) = delete;

    explicit operator bool() const { return state_ != nullptr; }
    Dataspace* operator->() const { return state_->dataspace(); }
    Dataspace& operator*() const { return *state_->dataspace(); }
    HandleState& state() const { return *state_; }

    // For a thread that is cancelled, and so never gets to the destructor.
    void leave() const {
        if (state_ != nullptr) {
            state_->leave();
        }
    }

private:
    HandleState* state_;
};

// For all others: the thread is not cancelled inside but in the waits that allow it.
class Registration : private CancellationHold, public BriefRegistration {
public:
    using BriefRegistration::BriefRegistration;

    const CancellationHold& hold() const { return *this; }
};

// Prints and logs "VexoHandle is null" for handle 0.
void report_if_null(uint32_t handle);

// Logs " Error: vexoHandle is NULL".
void record_null(Caller caller);

// An unknown handle is reported in one of the two ways that the interface has.
Registration find_or_report_not_found(Caller caller);  // prints and logs "---VexoHandle not found"
Registration find_or_record_null(Caller caller);       // as record_null() does

// For those who keep the handle's end off by other means than being counted: the receive thread by
// its pass, readers of packages by their mutex. Null when the handle is gone. Handle 0 is reported.
HandleState* find_live_state(uint32_t handle);

// Takes the handle from the list, and lets the lookups see as many slots as the list has handles.
void unregister(uint32_t handle);
// Lets the lookups see one slot fewer.
void drop_last_slot();

}  // namespace vexo

#endif
