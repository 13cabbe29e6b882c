/* Whether the library at argv[1] is still there after it was loaded and closed. */
#include <dlfcn.h>
#include <stdio.h>

int main(int argc, char** argv) {
    void* const library = argc == 2 ? dlopen(argv[1], RTLD_NOW) : NULL;
    if (library == NULL || dlclose(library) != 0) {
        fprintf(stderr, "%s\n", dlerror());
        return 2;
    }
    return dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD) != NULL ? 0 : 1;
}
