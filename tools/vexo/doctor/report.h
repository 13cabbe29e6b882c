// Results and verdict, for people and for programs.
#ifndef TOOLS_VEXO_DOCTOR_REPORT_H
#define TOOLS_VEXO_DOCTOR_REPORT_H

#include "tools/vexo/doctor/verdict.h"
#include "tools/vexo/output.h"

namespace doctor {

tool::Json document_of(const std::vector<Result>& results, const Verdict& verdict);

// What does not apply is left out, unless `all` is wanted.
void print(const std::vector<Result>& results, const Verdict& verdict, double run_seconds, bool all,
           tool::Output& output);

}  // namespace doctor

#endif
