/* The smallest application: asks the library for its version, and logs that. */
#include <client/vexo.h>
#include <log/log.h>
#include <stdio.h>

int main(void) {
    uint8_t version[6] = {0};
    log_init();
    if (vexo_get_SDK_Version(version) != 0) {
        return 1;
    }
    printf("vexo %s\n", (const char*)version);
    fflush(stdout);
    log_cleanup();
    return 0;
}
