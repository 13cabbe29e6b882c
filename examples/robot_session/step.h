// Says what the application is doing, and gives up at the first thing that goes wrong.
#ifndef EXAMPLES_ROBOT_SESSION_STEP_H
#define EXAMPLES_ROBOT_SESSION_STEP_H

#include <cstdio>
#include <stdexcept>
#include <string>

// Takes the result of a call of the library: 0 is good, anything else ends the session.
inline void step(const std::string& what, int result) {
    if (result != 0) {
        throw std::runtime_error(what + " failed with " + std::to_string(result));
    }
    std::printf("  ok  %s\n", what.c_str());
    std::fflush(stdout);
}

// The same for something that must hold.
inline void require(const std::string& what, bool holds) {
    step(what, holds ? 0 : -1);
}

#endif
