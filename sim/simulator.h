// A simulated robot controller: a six-axis arm behind the ports 2295, 2297 and 2299 of an address.
//
// A Simulator serves from its construction to stop() on a thread of its own. It is meant for one
// client at a time: a new connection to port 2295 begins a new session (no version negotiated, no
// recipes, no streaming), and the end of that connection ends the session. Every member function
// may be called from any thread at any time, after stop() too.
#ifndef SIM_SIMULATOR_H
#define SIM_SIMULATOR_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/catalogue.h"
#include "sim/fault.h"

namespace sim {

// Where a message comes from: a TCP port, or the raw frames beside the ports.
enum class Port : uint16_t { raw = 0, io = 2295, control = 2297, stream = 2299 };

// Why a request is refused: the status byte of its reply.
enum class Status : uint8_t {
    accepted = 0,
    malformed = 1,     // its length does not fit its type, or the arguments do not fit in it
    unknown_type = 2,  // no such type letter on this port
    unknown_variable = 3,
    unknown_method = 4,
    bad_argument = 5,     // number, type or value of an argument
    no_recipe = 6,        // streaming asked for without an output recipe
    error_state = 7,      // motion asked for while an error is set
    no_raw_path = 8,      // the raw path asked for, but the controller has none
    recipe_too_long = 9,  // a package would exceed the 65535 bytes of its length word
    wrong_port = 10,      // a method of the other port
};

struct Versions {
    uint16_t model = 6;
    std::string firmware = "3.2.17";
    std::string hardware = "C2";
    std::string bootloader = "1.0.4";
};

struct Options {
    std::string address = "127.0.0.1";
    double rate = 1000;  // output packages per second, more than 0, at most 1000
    Catalogue catalogue = Catalogue::built_in();
    std::string interface;            // network interface for the raw path; empty: none
    std::optional<MacAddress> mac;    // instead of the interface's, for several controllers on it
    Versions versions;                // each text at most 255 characters
    std::vector<Port> refused_ports;  // ports on which nobody listens
    size_t history = 100000;          // latest requests, set-points and inputs that are kept
};

using Joints = std::array<double, 6>;  // rad

// One servo-joint command.
struct SetPoint {
    double value = 0;  // the leading number
    uint32_t sequence = 0;
    uint8_t flag = 0;
    std::optional<Joints> vector;
    std::vector<double> joints;
    Port port = Port::control;  // Port::raw when a frame brought it
};

// One input package: the values of a recipe.
struct Input {
    uint8_t recipe_id = 0;
    std::vector<uint8_t> values;
    Port port = Port::io;
};

// Since construction.
struct Counters {
    uint64_t connections = 0;
    uint64_t requests = 0;  // of all types; set-points and inputs are among them
    uint64_t refused = 0;   // of these, refused (inputs, too, though nobody is told)
    uint64_t set_points = 0;
    uint64_t inputs = 0;
    uint64_t frames_rejected = 0;  // damaged, from another station, or without use for their code
    uint64_t packages_sent = 0;
    uint64_t packages_dropped = 0;  // lost by a fault, or because the client did not read
};

class Simulator {
public:
    using Bytes = std::vector<uint8_t>;
    using Limit = std::chrono::milliseconds;

    // Throws std::system_error when a port cannot be had, std::invalid_argument when an option
    // makes no sense; the text names port and address, or the option.
    explicit Simulator(Options options = {});
    ~Simulator();
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    // Closes all connections and ends the thread. A second call does nothing.
    void stop();

    // Faults apply in the order of their injection; each message meets one at most.
    void inject(Fault fault);
    void clear_faults();
    // Ends every connection of a port at once, as a cut cable or a dying controller would.
    void disconnect(Port port, Break how = Break::close);

    // What arrived, oldest first.
    std::vector<Bytes> requests(Port port) const;
    std::vector<SetPoint> set_points() const;
    std::vector<Input> inputs() const;
    Counters counters() const;

    // Wait until so many have arrived, or been sent, since construction; false: not in time.
    bool wait_for_requests(char letter, uint64_t count,
                           Limit limit = std::chrono::seconds(10)) const;
    bool wait_for_set_points(uint64_t count, Limit limit = std::chrono::seconds(10)) const;
    bool wait_for_inputs(uint64_t count, Limit limit = std::chrono::seconds(10)) const;
    bool wait_for_packages(uint64_t count, Limit limit = std::chrono::seconds(10)) const;

    // The state of the arm. Bits of digital inputs and outputs: 0 to 15 standard, 16 to 23
    // configurable, 24 to 27 tool.
    bool streaming() const;
    Joints joint_positions() const;
    double speed_percent() const;
    uint64_t digital_outputs() const;
    void set_digital_inputs(uint64_t bits);
    uint32_t error_code() const;
    void raise_error(uint32_t code);

    // Fixes an output to a value (cut, or filled up with zeros, to its width). False: no such name.
    bool set_output(const std::string& name, const Bytes& value);
    // The value an input holds; empty when there is no such name.
    Bytes input(const std::string& name) const;

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

}  // namespace sim

#endif
