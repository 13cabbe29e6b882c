#include "log/utilities.h"

#include <ctime>

void vexo_delay_ms(uint32_t ms) {
    if (ms == 0) {
        return;
    }
    const timespec span{.tv_sec = ms / 1000, .tv_nsec = (ms % 1000) * 1'000'000L};
    clock_nanosleep(CLOCK_MONOTONIC, 0, &span, nullptr);
}

int check_string(const unsigned char* str) {
    if (str == nullptr || *str == '\0') {
        return 1;
    }
    bool element_empty = true;
    for (; *str != '\0'; ++str) {
        if (*str == ' ') {
            return 2;
        }
        const bool comma = *str == ',';
        if (comma && element_empty) {
            return 3;
        }
        element_empty = comma;
    }
    return element_empty ? 3 : 0;
}
