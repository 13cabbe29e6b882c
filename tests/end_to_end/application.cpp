#include "tests/end_to_end/application.h"

#include <fcntl.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

#include "tests/support/network_namespace.h"

namespace test {

sim::Options on_loopback(int number, sim::Options options) {
    options.address = own_loopback(number);
    return options;
}

std::string enter_own_network(int cables) {
    const std::string refusal = enter_network_namespace();
    for (int i = 0; i < cables && refusal.empty(); ++i) {
        const std::string number = std::to_string(i);
        const std::string mac = "02:00:00:00:0" + number;
        make_veth_pair("host" + number, mac + ":0a", "robot" + number, mac + ":0b");
    }
    return refusal;
}

void PrintTo(const Path& path, std::ostream* out) {
    *out << path.name;
}

std::string path_name(const ::testing::TestParamInfo<Path>& path) {
    return path.param.name;
}

void put_something_at_descriptor_zero() {
    const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (null > 0) {
        dup2(null, 0);
        close(null);
    }
}

Application::Application(const std::string& controller) : address(controller) {
    EXPECT_EQ(vexo_create_handle(&handle, address.c_str()), 0);
}

void Application::connect(int64_t mode, uint32_t nack) {
    ASSERT_EQ(vexo_create(handle, address.c_str(), interface.c_str(), mode, nullptr), 0);
    ASSERT_EQ(vexo_protocol_version_request(handle, mode, nack), 0);
}

void Application::load_catalogue() {
    ASSERT_EQ(vexo_all_recipe_get(handle), 0);
    servo_row = find_method_index(handle, "servoJ");
}

void Application::set_up_output(const std::string& names) {
    std::vector<int32_t> found = rows(names, 1);
    ASSERT_EQ(vexo_output_setup_send(handle, static_cast<int32_t>(found.size()),
                                     reinterpret_cast<uint32_t*>(found.data()), 0, &output_recipe),
              0);
}

void Application::set_up_input(const std::string& names) {
    std::vector<int32_t> found = rows(names, 0);
    ASSERT_EQ(vexo_input_setup_send(handle, static_cast<int32_t>(found.size()), found.data(),
                                    &input_recipe),
              0);
}

void Application::start() const {
    ASSERT_EQ(vexo_output_start(handle, 0), 0);
}

void Application::stream(const std::string& outputs, int64_t mode, uint32_t nack) {
    ASSERT_NO_FATAL_FAILURE(connect(mode, nack));
    ASSERT_NO_FATAL_FAILURE(load_catalogue());
    ASSERT_NO_FATAL_FAILURE(set_up_output(outputs));
    ASSERT_NO_FATAL_FAILURE(start());
}

int32_t Application::destroy() {
    static bool thread_ended = false;
    const int32_t result = vexo_destroy(handle);
    if (recv_thread_init_ok != 0 && !thread_ended) {
        thread_ended = true;
        EXPECT_EQ(pthread_join(th_receive, nullptr), 0);
    }
    return result;
}

std::vector<int32_t> Application::rows(const std::string& names, uint32_t kind) const {
    const auto count = 1 + std::count(names.begin(), names.end(), ',');
    std::vector<int32_t> found(static_cast<size_t>(count), -1);
    EXPECT_EQ(multi_find(handle, names.c_str(), kind, found.data()), count);
    return found;
}

int32_t Application::method(const char* name) const {
    const int32_t row = find_method_index(handle, name);
    EXPECT_GE(row, 0) << name;
    return row;
}

int32_t Application::servo(double value, const std::vector<double>& joints) const {
    return cvexo_servoj(handle, servo_row, value, 0, nullptr, static_cast<uint8_t>(joints.size()),
                        joints.data());
}

Package Application::latest() const {
    Package package;
    package.result = vexo_ouput_data_receive(handle, 0, package.bytes, sizeof package.bytes);
    return package;
}

bool Application::wait_settled(size_t socket_offset, int count) const {
    return wait_until([&] {
        int unread = 0;
        int unconfirmed = 0;
        ioctl(socket(socket_offset), SIOCINQ, &unread);
        ioctl(socket(socket_offset), SIOCOUTQ, &unconfirmed);
        return unread >= count && unconfirmed == 0;
    });
}

namespace {

sim::Options station_options(int number, const Path& path, int cable,
                             std::optional<sim::MacAddress> mac) {
    sim::Options options = on_loopback(number);
    if (path.raw()) {
        options.interface = "robot" + std::to_string(cable);
        options.mac = mac;
    }
    return options;
}

}  // namespace

Station::Station(int number, const Path& path, int cable, std::optional<sim::MacAddress> mac,
                 const std::string& outputs)
    : controller(station_options(number, path, cable, mac)), app(own_loopback(number)) {
    app.interface = "host" + std::to_string(cable);
    app.connect(path.mode, path.nack);
    app.load_catalogue();
    app.set_up_output(outputs);
    app.set_up_input("heartbeat");
}

}  // namespace test
