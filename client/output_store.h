// The store of the latest output package. The receive thread alone writes it; readers get a whole
// package without ever holding up the thread: a count beside the store is odd while it is written,
// and a reader that saw it odd or changed reads again.
#ifndef CLIENT_OUTPUT_STORE_H
#define CLIENT_OUTPUT_STORE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

namespace vexo {

using StoreSequence = std::atomic<uint32_t>;
using Store = std::span<uint8_t>;

// Puts `bytes` into a buffer that another thread may be reading. The first word of them claims so
// many; what is not there of that counts as zero.
void store_claimed(Store buffer, std::span<const uint8_t> bytes, size_t claimed);

// Make these bytes the latest package, or zero the whole store. Receive thread only.
void show_package(Store store, StoreSequence& sequence, std::span<const uint8_t> bytes,
                  size_t claimed);
void clear_store(Store store, StoreSequence& sequence);

// Copies the latest package by its own length word. One that is longer than the buffer is cut to a
// byte less than that holds.
void read_package(std::span<const uint8_t> store, const StoreSequence& sequence,
                  std::span<uint8_t> buffer);

}  // namespace vexo

#endif
