/* Preloaded into a program: its first large write to a place in a file takes six seconds. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <unistd.h>

ssize_t pwrite(int descriptor, const void* data, size_t size, off_t place) {
    static int writes;
    ssize_t (*next)(int, const void*, size_t, off_t) =
        (ssize_t(*)(int, const void*, size_t, off_t))dlsym(RTLD_NEXT, "pwrite");
    if (size > 20000 && ++writes == 2) {
        sleep(6);
    }
    return next(descriptor, data, size, place);
}
