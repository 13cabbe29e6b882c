#include "tools/vexo/interrupt.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace tool {
namespace {

volatile sig_atomic_t g_interrupted = 0;
int g_event = -1;

void on_signal(int) {
    const int cause = errno;
    g_interrupted = 1;
    const uint64_t one = 1;
    if (write(g_event, &one, sizeof one) < 0) {
        // It is readable already.
    }
    // Either signal now does what it does by default.
    signal(SIGINT, SIG_DFL);
    signal(SIGTERM, SIG_DFL);
    errno = cause;
}

}  // namespace

void handle_signals() {
    g_event = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    struct sigaction action {};
    action.sa_handler = on_signal;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    signal(SIGPIPE, SIG_DFL);
}

bool interrupted() {
    return g_interrupted != 0;
}

int interrupt_descriptor() {
    return g_event;
}

bool sleep_unless_interrupted(std::chrono::nanoseconds span) {
    using std::chrono::steady_clock;
    const steady_clock::time_point end = steady_clock::now() + span;
    while (!interrupted()) {
        const std::chrono::nanoseconds left = end - steady_clock::now();
        if (left.count() <= 0) {
            return true;
        }
        const timespec wait{left.count() / 1'000'000'000, left.count() % 1'000'000'000};
        pollfd event{g_event, POLLIN, 0};
        ppoll(&event, 1, &wait, nullptr);
    }
    return false;
}

}  // namespace tool
