// What becomes of a call.
#ifndef TESTS_SUPPORT_OUTCOME_H
#define TESTS_SUPPORT_OUTCOME_H

#include <cstdint>
#include <ostream>
#include <string>

#include "tests/support/output_capture.h"

namespace test {

// What it returned, and what it printed meanwhile.
struct Outcome {
    int32_t result = 0;
    std::string printed;

    bool operator==(const Outcome&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
    return out << outcome.result << ", printing \"" << outcome.printed << '"';
}

template <typename Call>
Outcome outcome_of(Call call) {
    OutputCapture output;
    const int32_t result = call();
    return {result, output.text()};
}

}  // namespace test

#endif
