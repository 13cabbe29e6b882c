#include "session/connection.h"

#include <mutex>

namespace vexo::session {

void Connection::give_up(const VexoSessionError& reason) {
    {
        const std::lock_guard lock(mutex_);
        if (reason_.code == VEXO_SESSION_OK) {
            reason_ = reason;
        }
    }
    end(false);
}

VexoSessionError Connection::reason() {
    const std::lock_guard lock(mutex_);
    return reason_;
}

void Connection::end(bool finish) {
    if (raw) {
        raw->abort();
    }
    for (const Ref<Link>& link : {control, io}) {
        finish ? link->finish() : link->abort();
    }
}

}  // namespace vexo::session
