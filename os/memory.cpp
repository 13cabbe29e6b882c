#include "os/memory.h"

#include <cstdlib>

void* os_malloc(uint64_t size) {
    return std::malloc(size);
}

void* os_realloc(void* ptr, uint64_t size) {
    return std::realloc(ptr, size);
}

void os_free(void* ptr) {
    std::free(ptr);
}
