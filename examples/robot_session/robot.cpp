#include "robot.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "client/vexo.h"
#include "step.h"

namespace {

constexpr size_t kPackageHeader = 4;

// The outputs of struct Outputs: the six positions are a variable each, the heartbeat is an input.
constexpr char kOutputNames[] =
    "package_counter,controller_time,"
    "actual_joint_position_1,actual_joint_position_2,actual_joint_position_3,"
    "actual_joint_position_4,actual_joint_position_5,actual_joint_position_6,"
    "digital_output_bits,heartbeat";
constexpr char kInputNames[] = "heartbeat";

std::vector<int32_t> find_rows(uint32_t handle, const char* names, uint32_t kind,
                               const char* what) {
    std::vector<int32_t> rows(
        static_cast<size_t>(1 + std::count(names, names + std::strlen(names), ',')));
    multi_find(handle, names, kind, rows.data());
    require(std::string("find the ") + what, std::count(rows.begin(), rows.end(), -1) == 0);
    return rows;
}

template <typename Value>
void take(const uint8_t*& from, Value& value) {
    std::memcpy(&value, from, sizeof value);
    from += sizeof value;
}

}  // namespace

Robot::Robot(const std::string& address, const std::string& interface)
    : mode_(interface.empty() ? 2 : 3) {
    step("register " + address, vexo_create_handle(&handle_, address.c_str()));
    step(mode_ == 2 ? "connect over TCP" : "connect over raw Ethernet on " + interface,
         vexo_create(handle_, address.c_str(), interface.c_str(), mode_, nullptr));
    step("negotiate protocol version", vexo_protocol_version_request(handle_, mode_, 0));
}

Robot::~Robot() {
    if (handle_ != 0) {
        vexo_destroy(handle_);
    }
}

void Robot::read_catalogue() {
    step("read the catalogue", vexo_all_recipe_get(handle_));
}

void Robot::set_up_recipes() {
    const std::vector<int32_t> outputs =
        find_rows(handle_, kOutputNames, VEXO_FIND_OUTPUT, "output variables");
    std::vector<uint32_t> output_rows(outputs.begin(), outputs.end());
    uint32_t output_recipe = 0;
    step("set up the output recipe",
         vexo_output_setup_send(handle_, static_cast<int32_t>(output_rows.size()),
                                output_rows.data(), 0, &output_recipe));
    std::vector<int32_t> inputs =
        find_rows(handle_, kInputNames, VEXO_FIND_INPUT, "input variables");
    step("set up the input recipe",
         vexo_input_setup_send(handle_, static_cast<int32_t>(inputs.size()), inputs.data(),
                               &input_recipe_));
    rows_found_ = outputs.size() + inputs.size();
}

void Robot::start() {
    step("start the output stream", vexo_output_start(handle_, 0));
}

void Robot::pause() {
    step("pause the output stream", vexo_output_pause(handle_, 0));
}

void Robot::destroy() {
    const uint32_t handle = handle_;
    handle_ = 0;
    step("destroy the handle", vexo_destroy(handle));
}

int32_t Robot::method(const std::string& name) const {
    const int32_t row = find_method_index(handle_, name.c_str());
    if (row < 0) {
        throw std::runtime_error("the controller has no method " + name);
    }
    return row;
}

bool Robot::read(Outputs& outputs) const {
    uint8_t package[256] = {};
    if (vexo_ouput_data_receive(handle_, 0, package, sizeof package) != 0 || package[0] == 0) {
        return false;
    }
    const uint8_t* value = package + kPackageHeader;
    take(value, outputs.package);
    take(value, outputs.time);
    take(value, outputs.position);
    take(value, outputs.digital_outputs);
    take(value, outputs.heartbeat);
    return true;
}

int32_t Robot::write(uint32_t heartbeat) const {
    return vexo_input_data_send(handle_, input_recipe_, &heartbeat);
}
