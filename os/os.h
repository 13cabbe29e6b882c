/* The operating-system layer. */
#ifndef OS_OS_H
#define OS_OS_H

#include <stdint.h>

#include "vexo_export.h"

VEXO_C_BEGIN

/* Allocates `size` bytes with the standard allocator. Returns null when there is no memory. */
VEXO_API void* os_malloc(uint64_t size);

VEXO_C_END

#endif
