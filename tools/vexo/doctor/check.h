// The checks: pure functions of the facts, in one table.
#ifndef TOOLS_VEXO_DOCTOR_CHECK_H
#define TOOLS_VEXO_DOCTOR_CHECK_H

#include <span>
#include <string>
#include <vector>

#include "tools/vexo/doctor/facts.h"

namespace doctor {

enum class State { good, bad, unknown, not_applicable };

// "good", "bad", "unknown", "not applicable"
const char* name_of(State state);

// What a check finds. Why and remedy are given where they depend on what is found.
struct Finding {
    State state;
    std::string fact;
    std::string why = "";
    std::string remedy = "";
};

// What something cost in the run, by the run's own figures.
struct Cost {
    enum class Kind { some, none, not_measured };
    Kind kind = Kind::not_measured;
    double us_per_second = 0;  // about: to put costs in an order
    std::string text = "";
};

// In remedies and commands stand for what the facts say: {port}, {cpu} (the loop's processor),
// {others} (all other processors), {group}, {controller}, {rivals} and {busy} (processes in the
// loop's way), {interrupts} (numbers of the port's interrupts that go to the loop's processor).
struct Check {
    int id;
    const char* title;
    const char* (*excused)(const Facts& facts);  // why it does not apply; null: it does
    Finding (*judge)(const Facts& facts);
    Cost (*cost)(const Facts& facts);  // asked when the finding is bad and there was a run
    const char* why;
    const char* remedy;
    const char* commands;  // of a shell; empty where a person has to do it
};

// By what they look at.
std::span<const Check> system_checks();
std::span<const Check> processor_checks();
std::span<const Check> port_checks();
std::span<const Check> way_checks();

struct Result {
    int id;
    std::string title;
    State state;
    std::string fact;
    std::string why;
    std::string remedy;
    std::string commands;
    Cost cost;
};

// All checks in the order of their numbers.
std::vector<Result> judge(const Facts& facts);

}  // namespace doctor

#endif
