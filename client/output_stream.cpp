// The output stream as the application sees it: start, pause, and the latest package.
#include "base/mutex_lock.h"
#include "client/exchange.h"
#include "client/receive_thread.h"
#include "client/registry.h"
#include "client/vexo.h"
#include "wire/package.h"

pthread_mutex_t base_datarecv_mutex = PTHREAD_MUTEX_INITIALIZER;

using namespace vexo;

namespace {

// A request without payload that moves the streaming flag when it is accepted.
int32_t switch_stream(Caller caller, wire::MessageWriter (*build)(std::span<uint8_t>),
                      Streaming accepted) {
    const Registration found = find_or_record_null(caller);
    if (!found) {
        return -1;
    }
    const int32_t result =
        request(caller, found, build(begin_message(caller, *found, Purpose::request)));
    if (result == 0) {
        shared(found->streaming).store(accepted, std::memory_order_release);
        wake_receive_thread();
    }
    return result;
}

}  // namespace

int32_t vexo_output_start(uint32_t handle, uint32_t) {
    const int32_t result = switch_stream({handle, __func__}, wire::start_request, kStarted);
    return result == 0 ? vexo_thread_init(VexoHandlelist) : result;
}

int32_t vexo_output_pause(uint32_t handle, uint32_t) {
    return switch_stream({handle, __func__}, wire::pause_request, kPaused);
}

int32_t vexo_ouput_data_receive(uint32_t handle, uint32_t, void* buffer, uint32_t size) {
    const BriefLock lock(base_datarecv_mutex);
    HandleState* const state = find_live_state(handle);
    if (state == nullptr) {
        record_null({handle, __func__});
        return -1;
    }
    Dataspace& dataspace = *state->dataspace();
    if (shared(dataspace.streaming).load(std::memory_order_acquire) != kStarted) {
        return VEXO_ERROR_NOT_FOUND;
    }
    read_package(dataspace.output_store, state->store_sequence,
                 {static_cast<uint8_t*>(buffer), size});
    return 0;
}
