// One run of the program vexo.
#ifndef TESTS_TOOLS_TOOL_H
#define TESTS_TOOLS_TOOL_H

#include <string>
#include <vector>

#include "tests/support/program.h"

namespace test {

struct Outcome {
    int status;  // -1 when a signal ended it
    std::string out;
    std::string err;
};

// Runs a program to its end, beside others of other threads; the first word is its path.
// Assignments before that are its environment beside our own: {"NO_COLOR=1", VEXO_TOOL, "info"}.
Outcome run_program(std::vector<std::string> words);

// Runs vexo with these arguments.
Outcome vexo(std::vector<std::string> arguments);

// A simulated robot on an address of this process.
class SimulatedRobot {
public:
    // With these options of vexo-sim, on own_loopback(number).
    explicit SimulatedRobot(std::vector<std::string> options = {}, int number = 1);
    // Runs vexo with the one on own_loopback(), with ample time: the machine may be busy.
    Outcome vexo(std::vector<std::string> arguments) const;

private:
    Program program_;
};

// The output of a shell's script. A failure of the script fails the test.
std::string shell(const std::string& script);

}  // namespace test

#endif
