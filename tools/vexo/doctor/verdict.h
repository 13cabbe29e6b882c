// What the results come to.
#ifndef TOOLS_VEXO_DOCTOR_VERDICT_H
#define TOOLS_VEXO_DOCTOR_VERDICT_H

#include <vector>

#include "tools/vexo/doctor/check.h"

namespace doctor {

struct Verdict {
    bool pass = true;              // nothing is bad, as far as the facts are known
    std::vector<Result> convicts;  // what cost something in the run, the dearest first
    std::vector<Result> suspects;  // bad, and cost nothing in the run, or nothing that it measures
    std::vector<Result> unknown;
};

Verdict decide(const std::vector<Result>& results);

// "cost nothing in this run" and so on; empty when nothing was or can be measured.
std::string describe(const Cost& cost);

// A shell's script with the commands of all remedies, in the order of the verdict.
std::string fix_script(const Verdict& verdict);

}  // namespace doctor

#endif
