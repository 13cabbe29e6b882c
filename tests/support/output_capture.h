// What the process writes to standard output or standard error while an object of this lives.
#ifndef TESTS_SUPPORT_OUTPUT_CAPTURE_H
#define TESTS_SUPPORT_OUTPUT_CAPTURE_H

#include <string>

namespace test {

class OutputCapture {
public:
    // `descriptor` is STDOUT_FILENO or STDERR_FILENO.
    explicit OutputCapture(int descriptor = 1);
    ~OutputCapture();
    OutputCapture(const OutputCapture&) = delete;
    OutputCapture& operator=(const OutputCapture&) = delete;

    // Everything written so far.
    std::string text();

private:
    int descriptor_;
    int saved_;
    int file_;
};

}  // namespace test

#endif
