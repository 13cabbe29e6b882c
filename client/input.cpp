// Input packages to the controller.
#include "base/mutex_lock.h"
#include "client/message.h"
#include "client/vexo.h"
#include "log/report.h"
#include "wire/package.h"

pthread_mutex_t base_datasend_mutex = PTHREAD_MUTEX_INITIALIZER;

using namespace vexo;

int32_t vexo_input_data_send(uint32_t handle, uint32_t recipe_id, const void* data) {
    const MutexLock lock(base_datasend_mutex);
    const Caller caller{handle, __func__};
    const Registration found = find_or_record_null(caller);
    if (!found) {
        return -1;
    }
    const std::span<uint8_t> room = begin_message(caller, *found, Purpose::input_package);
    if (room.empty()) {
        return VEXO_ERROR_TRANSPORT;
    }
    wire::MessageWriter message =
        wire::input_package(room, static_cast<uint8_t>(recipe_id),
                            {static_cast<const uint8_t*>(data), found->input_length});
    if (send_message(*found, Purpose::input_package, message.finish()) < 0) {
        report(caller, "%s send error", caller.function);
        return VEXO_ERROR_TRANSPORT;
    }
    return 0;
}
