// The one way to say that something happened: format, print, log.
#ifndef LOG_REPORT_H
#define LOG_REPORT_H

#include <cstdint>

namespace vexo {

// On whose behalf something is reported: the handle that it concerns (0 for none) and the exported
// function that the application called.
struct Caller {
    uint32_t handle;
    const char* function;
};

// All of them keep errno as it is, and leave the logged text in log_string.

// Prints the text as a line, and logs it.
[[gnu::format(printf, 2, 3)]] void report(Caller caller, const char* format, ...);

// Prints and logs the text exactly as it stands, with or without a line feed at its end.
[[gnu::format(printf, 2, 3)]] void report_verbatim(Caller caller, const char* format, ...);

// Prints `printed` as a line, and logs the formatted text, which says more.
[[gnu::format(printf, 3, 4)]] void report_as(Caller caller, const char* printed, const char* format,
                                             ...);

// Logs the text and prints nothing.
[[gnu::format(printf, 2, 3)]] void record(Caller caller, const char* format, ...);

}  // namespace vexo

#endif
