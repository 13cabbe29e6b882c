// How late a loop at 1 kHz is woken.
#ifndef TOOLS_VEXO_DOCTOR_WAKE_UP_RUN_H
#define TOOLS_VEXO_DOCTOR_WAKE_UP_RUN_H

#include <memory>

#include "tools/vexo/doctor/facts.h"

namespace doctor {

// A thread that sleeps until each millisecond, at the loop's priority if the system allows, on the
// loop's processor, and notes by how much it is woken late.
class WakeUpRun {
public:
    WakeUpRun(int processor, double most_seconds);
    ~WakeUpRun();
    WakeUpRun(const WakeUpRun&) = delete;
    WakeUpRun& operator=(const WakeUpRun&) = delete;

    // Ends it. The thread may not get a processor at all: then it is not waited for.
    Fact<WakeUps> finish();

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace doctor

#endif
