// A simulated robot controller: a six-axis arm behind the ports 2295, 2297 and 2299 of an address.
//
// A Simulator serves from its construction to stop() on a thread of its own. It is meant for one
// client at a time: a new connection to port 2295 begins a new session (no version negotiated, no
// recipes, no streaming), and the end of that connection ends the session. Every member function
// may be called from any thread at any time, after stop() too.
#ifndef SIM_SIMULATOR_H
#define SIM_SIMULATOR_H

#include <memory>

#include "sim/fault.h"
#include "sim/types.h"

namespace sim {

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

    // Faults apply in the order of their injection; each message meets one at most. What befalls
    // the controller at once has done so when the call returns; so have the calls below. Throws
    // std::invalid_argument when an edit of the catalogue makes no sense.
    void inject(Fault fault);
    // Forgets all faults, ends all outages and sets the clock right.
    void clear_faults();

    // Switched off: no port is open, connections end. Then everything is as after construction
    // (inputs of the world outside excepted), perhaps with another catalogue.
    void reboot(Span down, std::optional<Catalogue> afterwards = {}, Break how = Break::reset);
    // Another controller has the address from now on. Connections to the one before are abandoned.
    void take_over(Catalogue catalogue, Versions versions);
    // Takes connections and messages, but neither carries them out nor answers.
    void silence(Span span = kForever, std::optional<Port> port = {});
    // Connections are there or come about, but nothing is read from them, and nothing is sent.
    void half_open(Span span = kForever, std::optional<Port> port = {});
    // Nobody listens; the connections that there are go on.
    void refuse(Span span = kForever, std::optional<Port> port = {});
    // Ends every connection of a port, as a cut cable or a dying controller would.
    void disconnect(Port port, Break how = Break::close);
    // Publishes another catalogue from the next session on.
    void change_catalogue(Catalogue catalogue);

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
