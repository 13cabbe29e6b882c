#include <sstream>

#include "tools/vexo/doctor/verdict.h"

namespace doctor {
namespace {

void write_fix(std::ostream& out, const Result& result) {
    out << "\n# " << result.id << ", " << result.title << ": " << result.fact << '\n';
    if (result.commands.empty()) {
        out << "# by hand: " << result.remedy << '\n';
    } else {
        out << result.commands << '\n';
    }
}

}  // namespace

std::string fix_script(const Verdict& verdict) {
    std::ostringstream out;
    out << "#!/bin/sh\n"
           "# What `vexo doctor` would do about this host. Read it before you run it as root. "
           "What\n"
           "# sysctl, cpupower and echo set holds until the next start.\n";
    for (const std::vector<Result>& results : {verdict.convicts, verdict.suspects}) {
        for (const Result& result : results) {
            write_fix(out, result);
        }
    }
    return out.str();
}

}  // namespace doctor
