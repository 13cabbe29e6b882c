// The output stream as the application sees it: start, pause, and the latest package.
#include "base/mutex_lock.h"
#include "client/exchange.h"
#include "client/receive_thread.h"
#include "client/registry.h"
#include "client/vexo.h"

pthread_mutex_t base_datarecv_mutex = PTHREAD_MUTEX_INITIALIZER;

using namespace vexo;

namespace {

// A request without payload that moves the streaming flag when it is accepted.
int32_t switch_stream(Caller caller, char type, Streaming accepted) {
    const Registration found = find_or_record_null(caller);
    if (!found) {
        return -1;
    }
    MessageWriter message = begin_request(*found, type);
    const int32_t result = request(caller, found, found->io_socket, message);
    if (result == 0) {
        shared(found->streaming).store(accepted, std::memory_order_release);
        wake_receive_thread();
    }
    return result;
}

}  // namespace

int32_t vexo_output_start(uint32_t handle, uint32_t) {
    const int32_t result = switch_stream({handle, __func__}, 'S', kStarted);
    return result == 0 ? vexo_thread_init(VexoHandlelist) : result;
}

int32_t vexo_output_pause(uint32_t handle, uint32_t) {
    return switch_stream({handle, __func__}, 'P', kPaused);
}

int32_t vexo_ouput_data_receive(uint32_t handle, uint32_t, void* buffer, uint32_t size) {
    const MutexLock lock(base_datarecv_mutex);
    const Registration found = find_or_record_null({handle, __func__});
    if (!found) {
        return -1;
    }
    if (shared(found->streaming).load(std::memory_order_acquire) != kStarted) {
        return VEXO_ERROR_NOT_FOUND;
    }
    read_package(*found, found.state().store_sequence, static_cast<uint8_t*>(buffer), size);
    return 0;
}

int32_t build_all_hashes(uint32_t handle) {
    const Registration found = find_or_report_not_found({handle, __func__});
    if (!found) {
        return -1;
    }
    build_input_hash(handle, static_cast<int32_t>(found->input_count), found->inputs);
    build_output_hash(handle, static_cast<int32_t>(found->output_count), found->outputs);
    build_method_hash(handle, static_cast<int32_t>(found->method_count), found->methods);
    return 0;
}
