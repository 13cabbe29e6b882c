// The store of the latest output package. The receive thread alone writes it; readers get a whole
// package without ever holding up the thread: a count beside the store is odd while it is written,
// and a reader that saw it odd or changed reads again.
#ifndef CLIENT_OUTPUT_STORE_H
#define CLIENT_OUTPUT_STORE_H

#include <atomic>

#include "client/dataspace.h"

namespace vexo {

using StoreSequence = std::atomic<uint32_t>;

// Make `size` bytes the latest package, or zero the whole store. Receive thread only.
void show_package(Dataspace& dataspace, StoreSequence& sequence, const uint8_t* package,
                  size_t size);
void clear_store(Dataspace& dataspace, StoreSequence& sequence);

// Copies the latest package by its own length word. One that is longer than `size` is cut to
// size - 1 bytes.
void read_package(const Dataspace& dataspace, const StoreSequence& sequence, uint8_t* buffer,
                  uint32_t size);

}  // namespace vexo

#endif
