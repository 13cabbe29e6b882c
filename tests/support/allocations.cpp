#include "tests/support/allocations.h"

#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>

namespace {

constinit thread_local int until_failure = 0;
constinit std::atomic<uint64_t> blocks = 0;
constinit std::atomic<int64_t> live = 0;

void allocated(size_t size) {
    blocks.fetch_add(1, std::memory_order_relaxed);
    live.fetch_add(static_cast<int64_t>(size), std::memory_order_relaxed);
}

void released(size_t size) {
    live.fetch_sub(static_cast<int64_t>(size), std::memory_order_relaxed);
}

}  // namespace

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

// The sanitizers have allocators of their own, which call these.
extern "C" {

size_t __sanitizer_get_allocated_size(const volatile void* block);

void __sanitizer_malloc_hook(const volatile void*, size_t size) {
    allocated(size);
}

void __sanitizer_free_hook(const volatile void* block) {
    released(__sanitizer_get_allocated_size(block));
}

}  // extern "C"

#else

// These stand in front of the C library's own, in the whole process.
extern "C" {

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* block);

}  // extern "C"

namespace {

bool fails() {
    return until_failure > 0 && --until_failure == 0;
}

void* counted(void* block) {
    allocated(malloc_usable_size(block));
    return block;
}

}  // namespace

extern "C" {

void* malloc(size_t size) {
    return fails() ? nullptr : counted(__libc_malloc(size));
}

void* calloc(size_t count, size_t size) {
    return fails() ? nullptr : counted(__libc_calloc(count, size));
}

void* realloc(void* block, size_t size) {
    released(malloc_usable_size(block));
    return counted(__libc_realloc(block, size));
}

void* memalign(size_t alignment, size_t size) {
    return counted(__libc_memalign(alignment, size));
}

void* aligned_alloc(size_t alignment, size_t size) {
    return memalign(alignment, size);
}

int posix_memalign(void** block, size_t alignment, size_t size) {
    *block = memalign(alignment, size);
    return *block != nullptr ? 0 : ENOMEM;
}

void free(void* block) {
    released(malloc_usable_size(block));
    __libc_free(block);
}

}  // extern "C"

#endif

namespace test {

void fail_allocation(int nth) {
    until_failure = nth;
}

uint64_t allocations() {
    return blocks.load();
}

int64_t live_bytes() {
    return live.load();
}

}  // namespace test
