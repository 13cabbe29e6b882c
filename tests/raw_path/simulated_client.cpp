#include "tests/raw_path/simulated_client.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/process.h"

namespace test {

namespace {

sim::Options options(const std::string& address, const std::optional<Cable>& cable) {
    sim::Options all;
    all.address = address;
    all.catalogue.outputs = {{"package_counter", 0x0301, sim::Type::u32}};
    all.catalogue.inputs = {{"heartbeat", 0x0401, sim::Type::u32}};
    all.catalogue.methods = {{"servoJ", 0x0501}};
    if (cable) {
        all.interface = cable->robot;
        all.mac = cable->mac;
    }
    return all;
}

}  // namespace

SimulatedClient::SimulatedClient(int number, const std::optional<Cable>& cable, bool nack)
    : address_(own_loopback(number)), simulator_(options(address_, cable)) {
    const int64_t mode = cable ? 3 : 2;
    EXPECT_EQ(vexo_create_handle(&handle_, address_.c_str()), 0);
    EXPECT_EQ(vexo_create(handle_, address_.c_str(), cable ? cable->host.c_str() : nullptr, mode,
                          nullptr),
              0);
    EXPECT_EQ(vexo_protocol_version_request(handle_, mode, nack ? 1 : 0), 0);
    EXPECT_EQ(vexo_all_recipe_get(handle_), 0);
    uint32_t row = 0;
    uint32_t recipe = 0;
    EXPECT_EQ(vexo_output_setup_send(handle_, 1, &row, 0, &recipe), 0);
    int32_t input_row = 0;
    EXPECT_EQ(vexo_input_setup_send(handle_, 1, &input_row, &recipe), 0);
    EXPECT_EQ(recipe, 2U) << "the controller numbers its recipes";
}

void SimulatedClient::start() const {
    EXPECT_EQ(vexo_output_start(handle_, 0), 0);
}

uint32_t SimulatedClient::counter() const {
    uint8_t package[8] = {};
    EXPECT_EQ(vexo_ouput_data_receive(handle_, 0, package, sizeof package), 0);
    uint32_t counter = 0;
    std::memcpy(&counter, package + 4, sizeof counter);
    return counter;
}

int32_t SimulatedClient::servo(double joint) const {
    const double joints[6] = {joint, 0, 0, 0, 0, 0};
    return cvexo_servoj(handle_, 0, 0.001, 0, nullptr, 6, joints);
}

}  // namespace test
