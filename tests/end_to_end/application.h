// An application of the library, and the simulated controller that it talks to.
#ifndef TESTS_END_TO_END_APPLICATION_H
#define TESTS_END_TO_END_APPLICATION_H

#include <cstring>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "sim/simulator.h"
#include "tests/client/client_fixture.h"
#include "tests/support/outcome.h"

namespace test {

// The options, on the loopback address of that number.
sim::Options on_loopback(int number = 1, sim::Options options = {});

// Moves this process into a network of its own, where a cable joins host0 to robot0, the next one
// host1 to robot1, and so on. Returns an empty text, or the reason why the machine refuses.
std::string enter_own_network(int cables = 1);

// How packages travel: in a version of the protocol, and from version 3 on in frames, with a
// controller that may leave set-points unacknowledged.
struct Path {
    const char* name;
    int64_t mode;
    uint32_t nack = 0;

    bool raw() const { return mode > 2; }
};
constexpr Path kVersion1{"Version1", 1};
constexpr Path kVersion2{"Version2", 2};
constexpr Path kRaw{"Raw", 3};
constexpr Path kRawNack{"RawNack", 3, 1};
void PrintTo(const Path& path, std::ostream* out);
std::string path_name(const ::testing::TestParamInfo<Path>& path);

// The end of a handle on the raw path closes this descriptor.
void put_something_at_descriptor_zero();

// A latest package, as vexo_ouput_data_receive() gave it.
struct Package {
    int32_t result = -1;
    uint8_t bytes[VEXO_MAX_OUTPUT_PACKAGE] = {};

    size_t length() const { return static_cast<size_t>(bytes[0] | bytes[1] << 8); }
    // `offset` counts from the first value.
    template <typename T>
    T value(size_t offset) const {
        T result_value;
        std::memcpy(&result_value, bytes + 4 + offset, sizeof result_value);
        return result_value;
    }
};

// One handle of the application. What a step of the calling order returns other than 0 fails the
// test.
class Application {
public:
    // Registers a handle for the controller there.
    explicit Application(const std::string& address = own_loopback(1));

    // The steps of the calling order.
    void connect(int64_t mode = 2, uint32_t nack = 0);  // with the negotiation
    void load_catalogue();
    void set_up_output(const std::string& names);
    void set_up_input(const std::string& names);
    void start() const;
    // All of them up to the stream of these outputs.
    void stream(const std::string& outputs, int64_t mode = 2, uint32_t nack = 0);

    // Ends the handle, and sees the receive thread's end.
    int32_t destroy();

    // Rows of a comma-separated list of names.
    std::vector<int32_t> rows(const std::string& names, uint32_t kind) const;
    int32_t method(const char* name) const;
    int32_t servo(double value, const std::vector<double>& joints = std::vector<double>(6)) const;
    Package latest() const;

    uint8_t* dataspace() const { return get_vexo_dataspace(handle); }
    uint32_t member(size_t offset) const { return read_u32(dataspace() + offset); }
    int socket(size_t offset) const { return static_cast<int>(member(offset)); }
    // Waits until so many bytes lie unread in the socket at this offset, and the controller's
    // system has confirmed all that was sent; until then the socket would hold the next message
    // back.
    bool wait_settled(size_t socket_offset, int count) const;

    std::string address;
    std::string interface = "host0";  // for the raw path
    uint32_t handle = 0;
    uint32_t output_recipe = 0;
    uint32_t input_recipe = 0;
    int32_t servo_row = 0;
};

// A controller, and its application, which has set up a stream of the package counter and the
// heartbeat for its input. Start the streams of a test when all its stations are there: the receive
// thread serves those that it finds.
struct Station {
    // On the raw path, at the cable of that number, whose end may have several controllers.
    explicit Station(int number, const Path& path = kVersion2, int cable = 0,
                     std::optional<sim::MacAddress> mac = std::nullopt,
                     const std::string& outputs = "package_counter");

    uint32_t counter() const { return app.latest().value<uint32_t>(0); }

    sim::Simulator controller;
    Application app;
};

}  // namespace test

#endif
