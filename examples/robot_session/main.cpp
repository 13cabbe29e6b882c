// The whole of a session with a controller, in the library's calling order. scripts/demo runs it
// against the simulator.
//
// Usage: robot_session ADDRESS [SECONDS [INTERFACE]]
#include <cstdlib>
#include <exception>
#include <filesystem>

#include "client/vexo.h"
#include "robot.h"
#include "servo_loop.h"
#include "step.h"

namespace {

// Switches an output and reads it back.
void switch_outputs(const Robot& robot) {
    const uint32_t h = robot.handle();
    step("switch standard output 3",
         vexo_set_setstandarddigitalout(h, robot.method("setStandardDigitalOut"), 3, 1));
    step("switch configurable output 0",
         vexo_set_setconfigurabledigitalout(h, robot.method("setConfigurableDigitalOut"), 0, 1));
    step("switch tool output 1",
         vexo_set_settooldigitalout(h, robot.method("setToolDigitalOut"), 1, 1));
    uint64_t bits = 0;
    step("read the digital inputs",
         vexo_set_getalldigitalinputbits(h, robot.method("getAllDigitalInputBits"), &bits));
    step("read the digital outputs",
         vexo_set_getalldigitaloutputbits(h, robot.method("getAllDigitalOutputBits"), &bits));
    require("find the three outputs on", bits == (1U << 3 | 1U << 16 | 1U << 25));
}

void send_commands(const Robot& robot) {
    const uint32_t h = robot.handle();
    step("set the speed override",
         vexo_set_percentvelocity(h, robot.method("setPercentVelocity"), 80));
    switch_outputs(robot);
    step("reset errors", cvexo_resterror(h, robot.method("resetError")));
    step("start inertia compensation", cvexo_startinertiacomp(h, robot.method("startInertiaComp")));
    step("start torque compensation", cvexo_starttorquecomp(h, robot.method("startTorqueComp")));
    step("stop inertia compensation", cvexo_stopinertiacomp(h, robot.method("stopInertiaComp")));
    step("stop torque compensation", cvexo_stoptorquecomp(h, robot.method("stopTorqueComp")));
    step("start the log output", cvexo_startlogoutput(h, robot.method("startLogOutput")));
    step("start the force sensor input",
         cvexo_startsensorforceinput(h, robot.method("startSensorForceInput")));
    step("stop the force sensor input",
         cvexo_stopsensorforceinput(h, robot.method("stopSensorForceInput")));
}

VexoControllerVersion ask_version(const Robot& robot) {
    VexoControllerVersion version{};
    step("ask for the controller's version", vexo_get_control_version(robot.handle(), &version));
    return version;
}

double percentile(const std::vector<double>& sorted, double fraction) {
    return sorted[static_cast<size_t>(fraction * static_cast<double>(sorted.size() - 1))];
}

void print_summary(const Robot& robot, const ServoReport& servo,
                   const VexoControllerVersion& version) {
    const auto& trips = servo.round_trips;
    std::printf("\nSummary\n");
    std::printf("  controller    model %u, firmware %.20s, hardware %.20s\n", version.model,
                version.firmware, version.hardware);
    std::printf("  rows found    %zu\n", robot.rows_found());
    std::printf("  packages      %u seen of %u sent\n", servo.packages_seen, servo.packages_sent);
    std::printf("  servo cycles  %d on time, %d late\n", servo.on_time, servo.late);
    std::printf("  round trip    p50 %.0f us, p90 %.0f us, p99 %.0f us, max %.0f us\n",
                percentile(trips, 0.5), percentile(trips, 0.9), percentile(trips, 0.99),
                trips.back());
    std::printf("  logs          %s/vexo_*_log\n\n", std::filesystem::current_path().c_str());
}

void run(const char* address, std::chrono::seconds duration, const char* interface) {
    Robot robot(address, interface);
    robot.read_catalogue();
    robot.set_up_recipes();
    robot.start();
    const ServoReport servo = run_servo_loop(robot, duration);
    step("run the servo loop", 0);
    require("come back to where the arm was", servo.largest_error < 0.001);
    require("see most packages of the stream", servo.packages_seen * 2 > servo.packages_sent);
    step("stop the servo motion", cvexo_servo_stop(robot.handle(), robot.method("servoStop"), 1.0));
    send_commands(robot);
    Outputs outputs{};
    require("find the last input echoed", robot.read(outputs) && outputs.heartbeat != 0);
    const VexoControllerVersion version = ask_version(robot);
    robot.pause();
    robot.destroy();
    print_summary(robot, servo, version);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 4) {
        std::fprintf(stderr, "usage: %s ADDRESS [SECONDS [INTERFACE]]\n", argv[0]);
        return 2;
    }
    const int seconds = argc > 2 ? std::atoi(argv[2]) : 5;
    log_init();
    int status = 0;
    try {
        run(argv[1], std::chrono::seconds(seconds), argc > 3 ? argv[3] : "");
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "  --  %s\n", failure.what());
        status = 1;
    }
    log_cleanup();
    return status;
}
