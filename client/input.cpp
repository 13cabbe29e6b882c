// Input packages to the controller.
#include <algorithm>

#include "base/mutex_lock.h"
#include "client/exchange.h"
#include "client/registry.h"
#include "client/request_buffer.h"
#include "client/vexo.h"
#include "net/exchange_socket.h"
#include "net/raw_socket.h"

pthread_mutex_t base_datasend_mutex = PTHREAD_MUTEX_INITIALIZER;

using namespace vexo;

namespace {

constexpr uint8_t kInputFrame = 145;

}  // namespace

int32_t vexo_input_data_send(uint32_t handle, uint32_t recipe_id, const void* data) {
    const MutexLock lock(base_datasend_mutex);
    const Caller caller{handle, __func__};
    const Registration found = find_or_record_null(caller);
    if (!found) {
        return -1;
    }
    const bool raw_layout = static_cast<int32_t>(found->version_word) > 2;
    const int header = raw_layout ? reserve_frame_header(caller, *found) : 0;
    if (header < 0) {
        return VEXO_ERROR_TRANSPORT;
    }
    MessageWriter message = begin_request_behind(*found, header, 'U');
    message.u8(static_cast<uint8_t>(recipe_id)).bytes(data, found->input_length);
    const size_t total = message.finish() + static_cast<size_t>(header);
    if (send_request(*found, found->io_socket, kInputFrame, total) < 0) {
        report(caller, "%s send error", caller.function);
        return VEXO_ERROR_TRANSPORT;
    }
    return 0;
}
