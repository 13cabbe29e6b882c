#include "client/handle_state.h"

#include <cstdlib>
#include <cstring>

namespace vexo {

bool HandleState::is_free() const {
    return (calls_.load(std::memory_order_acquire) & kFree) != 0;
}

void HandleState::begin(Dataspace* dataspace, const char* ip) {
    dataspace_ = dataspace;
    packages_of = -1;
    own_endpoint = -1;
    std::memset(ip_, 0, sizeof ip_);
    std::memcpy(ip_, ip, strnlen(ip, sizeof ip_ - 1));
    live_.store(true, std::memory_order_release);
    // Not a new value: a lookup that found the state closed may not have left yet.
    calls_.fetch_and(~(kClosed | kFree), std::memory_order_release);
}

bool HandleState::close() {
    return (calls_.fetch_or(kClosed) & kClosed) == 0;
}

bool HandleState::has_other_calls() const {
    return calls_.load(std::memory_order_acquire) != (kClosed | 1);
}

void HandleState::wait_for_other_calls() const {
    for (uint32_t calls = calls_; calls != (kClosed | 1); calls = calls_) {
        calls_.wait(calls);
    }
}

void HandleState::end() {
    live_.store(false, std::memory_order_release);
    calls_.fetch_or(kEnded);
}

bool HandleState::enter() {
    if ((calls_.fetch_add(1) & kClosed) != 0) {
        leave();
        return false;
    }
    return true;
}

void HandleState::leave() {
    if ((calls_.fetch_sub(1) & kClosed) != 0) {
        leave_closed();
    }
}

// The last one out of a handle that has ended frees it.
void HandleState::leave_closed() {
    calls_.notify_all();
    uint32_t last = kClosed | kEnded;
    if (calls_.compare_exchange_strong(last, kClosed)) {
        release_name_index(*dataspace_);
        std::free(dataspace_);
        calls_.fetch_or(kFree, std::memory_order_release);
    }
}

}  // namespace vexo
