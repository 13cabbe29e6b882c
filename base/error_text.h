// The text for an error number.
#ifndef BASE_ERROR_TEXT_H
#define BASE_ERROR_TEXT_H

#include <cstdio>
#include <cstring>

namespace vexo {

// "<system's text> (errno: <number>)", in the object itself, so that threads do not share it.
struct ErrorText {
    char text[512];

    explicit ErrorText(int error_number) {
        char buffer[256];
        std::snprintf(text, sizeof text, "%s (errno: %d)",
                      strerror_r(error_number, buffer, sizeof buffer), error_number);
    }
};

}  // namespace vexo

#endif
