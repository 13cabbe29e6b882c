#include "log/report.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "base/cancellation.h"
#include "base/racing_copy.h"
#include "log/log.h"

namespace vexo {

namespace {

// A report is made on the side: errno stays, and the thread is not cancelled half-way, with
// standard output locked.
class Aside {
public:
    ~Aside() { errno = saved_; }

private:
    CancellationHold hold_;
    int saved_ = errno;
};

// Prints the text whole, however long it is; the log cuts it.
void print(const char* format, va_list arguments, const char* end) {
    va_list copy;
    va_copy(copy, arguments);
    flockfile(stdout);
    std::vprintf(format, copy);
    std::fputs(end, stdout);
    funlockfile(stdout);
    va_end(copy);
}

// A text in the caller's own buffer, so that what is logged is always one caller's.
struct Text {
    char characters[VEXO_LOG_STRING_SIZE];

    Text(const char* format, va_list arguments) {
        std::vsnprintf(characters, sizeof characters, format, arguments);
    }
};

void log_text(Caller caller, const Text& text) {
    racing_copy(log_string, text.characters, std::strlen(text.characters) + 1);
    log_write(caller.handle, caller.function, text.characters);
}

void print_and_log(Caller caller, const char* format, va_list arguments, const char* end) {
    const Aside aside;
    print(format, arguments, end);
    log_text(caller, Text(format, arguments));
}

}  // namespace

void report(Caller caller, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    print_and_log(caller, format, arguments, "\n");
    va_end(arguments);
}

void report_verbatim(Caller caller, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    print_and_log(caller, format, arguments, "");
    va_end(arguments);
}

void report_as(Caller caller, const char* printed, const char* format, ...) {
    const Aside aside;
    va_list arguments;
    va_start(arguments, format);
    const Text text(format, arguments);
    va_end(arguments);
    std::puts(printed);
    log_text(caller, text);
}

void record(Caller caller, const char* format, ...) {
    const Aside aside;
    va_list arguments;
    va_start(arguments, format);
    const Text text(format, arguments);
    va_end(arguments);
    log_text(caller, text);
}

}  // namespace vexo
