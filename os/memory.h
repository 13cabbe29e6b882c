/* The allocator of the operating-system layer: that of the C library, under names of its own, so
   that memory may pass between os_* and malloc/free. Any thread; not meant for real-time paths. */
#ifndef OS_MEMORY_H
#define OS_MEMORY_H

#include <stdint.h>

#include "vexo_export.h"

VEXO_C_BEGIN

/* Allocates `size` bytes, not zeroed. Returns null when there is no memory; for a size of 0, what
   malloc returns. */
VEXO_API void* os_malloc(uint64_t size);

/* Resizes the block `ptr` (null: allocates) to `size` bytes and keeps its content up to the smaller
   of the two sizes. Returns the block, which may have moved, or null with `ptr` untouched. */
VEXO_API void* os_realloc(void* ptr, uint64_t size);

/* Releases a block of os_malloc or os_realloc; null is allowed. */
VEXO_API void os_free(void* ptr);

VEXO_C_END

#endif
