#include <cstdlib>

#include "os/os.h"

void* os_malloc(uint64_t size) {
    return std::malloc(size);
}
