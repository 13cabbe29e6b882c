// Ctrl-C and SIGTERM: the first ends a command cleanly, with its summary; the second ends the
// process at once. A reader of our output that goes away ends it silently.
#ifndef TOOLS_VEXO_INTERRUPT_H
#define TOOLS_VEXO_INTERRUPT_H

#include <chrono>

namespace tool {

void handle_signals();

bool interrupted();

// Becomes readable with the first signal, and stays so: for poll().
int interrupt_descriptor();

// Returns false when the signal came before the time was over.
bool sleep_unless_interrupted(std::chrono::nanoseconds span);

}  // namespace tool

#endif
