// A simulated controller that streams at 1 kHz, and a client of it.
#ifndef TESTS_RAW_PATH_SIMULATED_CLIENT_H
#define TESTS_RAW_PATH_SIMULATED_CLIENT_H

#include <optional>
#include <string>

#include "client/vexo.h"
#include "sim/simulator.h"

namespace test {

// The two ends of a cable; none for the TCP path.
struct Cable {
    std::string host;
    std::string robot;
    std::optional<sim::MacAddress> mac;  // of the controller, instead of the interface's
};

// Connected and negotiated, with a recipe of the package counter. Start it when all clients of a
// test are there: the receive thread serves those that it finds.
class SimulatedClient {
public:
    // `number` tells the controllers of a test apart.
    explicit SimulatedClient(int number, const std::optional<Cable>& cable, bool nack = false);

    void start() const;
    // The counter of the latest package; 0 before the first.
    uint32_t counter() const;
    int32_t servo(double joint) const;

    uint32_t handle() const { return handle_; }
    sim::Simulator& simulator() { return simulator_; }

private:
    std::string address_;
    sim::Simulator simulator_;
    uint32_t handle_ = 0;
};

}  // namespace test

#endif
