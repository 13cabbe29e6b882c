// The terms in which simulated controllers and the tests that use them speak.
#ifndef SIM_TYPES_H
#define SIM_TYPES_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/catalogue.h"

namespace sim {

using MacAddress = std::array<uint8_t, 6>;
using Joints = std::array<double, 6>;  // rad

// How long something lasts, or until it happens.
using Span = std::chrono::microseconds;
inline constexpr Span kForever = Span::max();

// Where a message comes from: a TCP port, or the raw frames beside the ports.
enum class Port : uint16_t { raw = 0, io = 2295, control = 2297, stream = 2299 };

// How a connection ends. An abandoned one stays open: nothing is read or sent, and the first byte
// that comes is answered with a reset, as by a controller that has forgotten the connection.
enum class Break { none, close, reset, abandon };

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

class Replay;

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
    std::shared_ptr<Replay> replay;   // sent instead of what the arm shows; null: the arm
    std::vector<Port> refused_ports;  // ports on which nobody ever listens
    size_t history = 100000;          // latest requests, set-points and inputs that are kept
};

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

}  // namespace sim

#endif
