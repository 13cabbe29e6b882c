// A program that runs beside the test, with its output in a file.
#ifndef TESTS_SUPPORT_PROGRAM_H
#define TESTS_SUPPORT_PROGRAM_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace test {

class Program {
public:
    // The first argument is the program's path.
    explicit Program(std::vector<std::string> arguments);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // What it has written to either output.
    std::string output() const;
    // Waits for its first line.
    bool ready() const;
    // Waits for its end, after a signal if one is given. Returns the exit status, or -1 when it was
    // ended by a signal.
    int status(int signal = 0);

private:
    std::string file_;
    pid_t pid_ = -1;
};

}  // namespace test

#endif
