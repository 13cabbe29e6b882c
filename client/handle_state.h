// What a handle has beside its public record and its dataspace.
#ifndef CLIENT_HANDLE_STATE_H
#define CLIENT_HANDLE_STATE_H

#include <atomic>

#include "client/dataspace.h"
#include "client/output_store.h"
#include "log/log_key.h"
#include "wire/package_stream.h"

namespace vexo {

// Keeps a dataspace from being freed while a call is inside. A state itself is never freed, only
// used for another handle: a lookup beside the handle's end touches nothing else.
class HandleState {
public:
    // ---- Of the thread that creates and ends the handle.

    // Whether no handle has the state any more.
    bool is_free() const;
    void begin(Dataspace* dataspace, const char* ip);
    // No call enters any more. False when that is so already.
    bool close();
    // Waits until the caller, who is in a call itself, is alone.
    void wait_for_other_calls() const;
    bool has_other_calls() const;
    // The handle is gone. Its dataspace is freed when the last call leaves.
    void end();

    // ---- Of any thread.

    // Begins a call. False when the handle is at its end.
    bool enter();
    void leave();
    bool closing() const { return (calls_.load(std::memory_order_relaxed) & kClosed) != 0; }
    // Until end(). Whoever is not in a call keeps the handle's end off by other means.
    bool live() const { return live_.load(std::memory_order_acquire); }

    Dataspace* dataspace() const { return dataspace_; }
    const char* ip() const { return ip_; }

    // The raw instance that was made for it; -1: none. A handle without one has the number 0 in its
    // dataspace, which may be another handle's.
    std::atomic<int> own_endpoint{-1};

    // ---- Of the receive thread, in its pass.

    StoreSequence store_sequence{0};
    // Kept here since the next thread goes on where one has ended, perhaps within a package.
    wire::PackageStream packages;
    int packages_of = -1;  // the socket that they came from

private:
    void leave_closed();

    // How many calls are inside, and
    static constexpr uint32_t kClosed = 1u << 31;
    static constexpr uint32_t kEnded = 1u << 30;
    static constexpr uint32_t kFree = 1u << 29;
    std::atomic<uint32_t> calls_{kClosed | kFree};

    std::atomic<bool> live_{false};
    Dataspace* dataspace_ = nullptr;
    char ip_[kLogKeySize] = {};
};

}  // namespace vexo

#endif
