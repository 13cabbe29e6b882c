#include "session/alarm.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include "session/descriptor.h"

namespace vexo::session {

Alarm::Alarm() : descriptor_(above_standard(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))) {}

Alarm::~Alarm() {
    if (descriptor_ >= 0) {
        close(descriptor_);
    }
}

void Alarm::ring() {
    eventfd_write(descriptor_, 1);
}

void Alarm::clear() {
    eventfd_t ignored = 0;
    eventfd_read(descriptor_, &ignored);
}

// The list is one of the alarm's owners while it is in it.
void AlarmList::add(const Ref<Alarm>& alarm) {
    if (alarm->armed_.exchange(true)) {
        return;
    }
    alarm->keep();
    alarm->next_ = first_.load(std::memory_order_relaxed);
    while (!first_.compare_exchange_weak(alarm->next_, alarm.get())) {
    }
}

void AlarmList::set_off() {
    if (first_.load() == nullptr) {
        return;
    }
    Alarm* next = first_.exchange(nullptr);
    while (next != nullptr) {
        const Ref<Alarm> alarm = Ref<Alarm>::adopt(next);
        next = alarm->next_;
        alarm->armed_.store(false);
        alarm->ring();
    }
}

}  // namespace vexo::session
