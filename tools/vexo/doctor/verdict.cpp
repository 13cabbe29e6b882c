#include "tools/vexo/doctor/verdict.h"

#include <algorithm>

namespace doctor {

Verdict decide(const std::vector<Result>& results) {
    Verdict verdict;
    for (const Result& result : results) {
        if (result.state == State::unknown) {
            verdict.unknown.push_back(result);
        } else if (result.state == State::bad) {
            const bool convicted = result.cost.kind == Cost::Kind::some;
            (convicted ? verdict.convicts : verdict.suspects).push_back(result);
            verdict.pass = false;
        }
    }
    std::stable_sort(verdict.convicts.begin(), verdict.convicts.end(),
                     [](const Result& a, const Result& b) {
                         return a.cost.us_per_second > b.cost.us_per_second;
                     });
    return verdict;
}

std::string describe(const Cost& cost) {
    switch (cost.kind) {
        case Cost::Kind::some:
            return cost.text;
        case Cost::Kind::none:
            return "cost nothing in this run";
        case Cost::Kind::not_measured:
            return "";
    }
    return "";
}

}  // namespace doctor
