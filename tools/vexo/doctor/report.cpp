#include "tools/vexo/doctor/report.h"

#include <cstdio>

namespace doctor {
namespace {

using tool::Json;
using tool::Output;
using tool::Paint;

Paint paint_of(State state) {
    switch (state) {
        case State::good:
            return Paint::good;
        case State::bad:
            return Paint::bad;
        case State::unknown:
            return Paint::doubtful;
        case State::not_applicable:
            return Paint::faint;
    }
    return Paint::faint;
}

std::string padded(std::string text, size_t width) {
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

void print_result(const Result& result, Output& output) {
    char number[16];
    std::snprintf(number, sizeof number, "%3d  ", result.id);
    output.text(number + output.painted(paint_of(result.state), padded(name_of(result.state), 16)) +
                padded(result.title, 40) + result.fact + '\n');
}

void print_advice(const std::string& heading, const std::vector<Result>& results, Output& output) {
    if (results.empty()) {
        return;
    }
    output.text('\n' + output.painted(Paint::strong, heading) + '\n');
    for (const Result& result : results) {
        const std::string cost = describe(result.cost);
        output.text("  " + std::to_string(result.id) + ", " + result.title + ": " + result.why +
                    (cost.empty() ? "" : " (" + cost + ")") + "\n      remedy: " + result.remedy +
                    '\n');
    }
}

std::string summary(const Verdict& verdict, double run_seconds) {
    std::string text = "Verdict: ";
    if (verdict.pass) {
        text += "fit for 1 kHz, as far as could be seen";
    } else if (!verdict.convicts.empty()) {
        text += "not fit for 1 kHz as it is";
    } else {
        text += run_seconds > 0 ? "not as it should be, though nothing was seen to cost anything"
                                : "not as it should be";
    }
    if (run_seconds <= 0) {
        text += "; no run was made";
    }
    if (!verdict.unknown.empty()) {
        text += "; " + std::to_string(verdict.unknown.size()) + " not known";
    }
    return text + '.';
}

}  // namespace

Json document_of(const std::vector<Result>& results, const Verdict& verdict) {
    Json document;
    document["checks"] = Json::array();
    for (const Result& result : results) {
        document["checks"].push_back({{"id", result.id},
                                      {"title", result.title},
                                      {"state", name_of(result.state)},
                                      {"fact", result.fact},
                                      {"why", result.why},
                                      {"remedy", result.remedy},
                                      {"cost", describe(result.cost)}});
    }
    document["verdict"] = verdict.pass ? "pass" : "fail";
    document["actions"] = Json::array();
    for (const std::vector<Result>& group : {verdict.convicts, verdict.suspects}) {
        for (const Result& result : group) {
            document["actions"].push_back(result.id);
        }
    }
    return document;
}

void print(const std::vector<Result>& results, const Verdict& verdict, double run_seconds, bool all,
           Output& output) {
    for (const Result& result : results) {
        if (all || result.state != State::not_applicable) {
            print_result(result, output);
        }
    }
    print_advice("What cost something in this run, the dearest first:", verdict.convicts, output);
    print_advice(run_seconds > 0 ? "Suspects:" : "What is not as it should be:", verdict.suspects,
                 output);
    output.text('\n' + output.painted(Paint::strong, summary(verdict, run_seconds)) + '\n');
}

}  // namespace doctor
