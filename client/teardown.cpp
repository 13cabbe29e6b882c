// Ends a handle's life.
#include <sys/socket.h>

#include "base/mutex_lock.h"
#include "client/receive_thread.h"
#include "client/registry.h"
#include "client/vexo.h"
#include "net/exchange_socket.h"
#include "net/raw_endpoint.h"

using namespace vexo;

namespace {

bool close_connection(Caller caller, int socket, const char* failure) {
    if (socket_close(socket) == 0) {
        return true;
    }
    report(caller, "%s", failure);
    return false;
}

// All three, whatever becomes of each. Returns 0 or -1.
int32_t close_connections(Caller caller, const Dataspace& dataspace) {
    const bool control =
        close_connection(caller, dataspace.control_socket, "Failed to close control interface");
    const bool receive =
        close_connection(caller, dataspace.receive_socket, "Failed to close receive interface");
    const bool io =
        close_connection(caller, dataspace.io_socket, "Failed to close IO control interface");
    return control && receive && io ? 0 : -1;
}

// Descriptor 0 stands for a connection that was never opened: whatever it is, it is not ours.
void wake_waiting_calls(Dataspace& dataspace) {
    for (const int socket : {dataspace.io_socket, dataspace.control_socket}) {
        if (socket > 0) {
            shutdown(socket, SHUT_RDWR);
        }
    }
    sem_post(&dataspace.reply);
}

}  // namespace

int32_t vexo_destroy(uint32_t handle) {
    const Caller caller{handle, __func__};
    record(caller, "vexo_destroy vexoHandle %d", static_cast<int>(handle));
    const Registration found = find_or_record_null(caller);
    if (!found) {
        return -1;
    }
    HandleState& state = found.state();
    if (!state.close()) {  // another thread ends it
        record_null(caller);
        return -1;
    }
    if (state.has_other_calls()) {
        wake_waiting_calls(*found);
        state.wait_for_other_calls();
    }
    // From here on the receive thread begins no pass, so that neither the descriptors nor the
    // dataspace go away under its hands; when it goes on it meets its cancellation.
    const ReceivePause pause;
    const int32_t result = close_connections(caller, *found);
    shared(found->streaming).store(kNotStarted, std::memory_order_release);
    vexo_thread_destroy();
    raw_listen_to_all(state.own_endpoint);  // it stays open for the application
    unregister(handle);
    // Readers of the latest package are not counted, which would cost them more than the copy.
    const BriefLock no_reader(base_datarecv_mutex);
    state.end();
    return result;
}
