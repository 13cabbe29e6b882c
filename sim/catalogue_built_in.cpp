#include "sim/arm_signals.h"
#include "sim/catalogue.h"

namespace sim {

namespace {

// Ids differ from row numbers, and from one list to the other, so that a client that mixes them up
// is found out.
constexpr uint32_t kFirstOutputId = 0x0201;
constexpr uint32_t kFirstInputId = 0x1401;
constexpr uint16_t kFirstMethodId = 0x0065;
constexpr uint16_t kMethodIdStep = 3;

class InputList {
public:
    void add(const std::string& name, Type type) {
        list.push_back({name, kFirstInputId + static_cast<uint32_t>(list.size()), type});
    }
    void family(const std::string& name, unsigned count, Type type) {
        for (unsigned i = 0; i < count; ++i) {
            add(name + "_" + std::to_string(i), type);
        }
    }

    std::vector<Variable> list;
};

std::vector<Variable> inputs() {
    InputList all;
    all.family("input_int_register", 16, Type::i32);
    all.family("input_double_register", 16, Type::f64);
    all.family("input_bool_register", 8, Type::boolean);
    all.family("input_bit_register", 2, Type::u64);
    all.family("standard_analogue_output_request", 4, Type::f64);
    all.add("standard_digital_output_mask", Type::u16);
    all.add("standard_digital_output_request", Type::u16);
    all.add("configurable_digital_output_mask", Type::u8);
    all.add("configurable_digital_output_request", Type::u8);
    all.add("tool_digital_output_mask", Type::u8);
    all.add("tool_digital_output_request", Type::u8);
    all.add("speed_slider_mask", Type::u32);
    all.add("speed_slider_fraction", Type::f64);
    all.add("external_force_torque", Type::vector6);
    all.add("external_joint_torques", Type::vector6);
    all.add("payload_mass_request", Type::f64);
    all.add("payload_centre_request", Type::vector3);
    all.add("tool_offset_request", Type::vector6);
    all.add("conveyor_encoder_count", Type::i32);
    all.add("conveyor_speed", Type::f32);
    all.add("heartbeat", Type::u32);
    all.add("application_state", Type::i16);
    all.add("application_step", Type::i8);
    all.add("application_time_us", Type::i64);
    all.add("application_text", Type::text);
    all.add("application_mark", Type::character);
    all.add("tool_acceleration_limit", Type::vector3_f32);
    all.add("joint_encoder_offsets", Type::vector6_i32);
    all.add("joint_parameter_words", Type::vector6_u32);
    all.add("joint_stiffness", Type::vector6_f32);
    return std::move(all.list);
}

constexpr const char* kMethodNames[] = {
    "setPercentVelocity",
    "setStandardDigitalOut",
    "setConfigurableDigitalOut",
    "setToolDigitalOut",
    "getAllDigitalInputBits",
    "getAllDigitalOutputBits",
    "servoJ",
    "servoStop",
    "resetError",
    "startInertiaComp",
    "startTorqueComp",
    "stopInertiaComp",
    "stopTorqueComp",
    "startLogOutput",
    "startSensorForceInput",
    "stopSensorForceInput",
    "powerOn",
    "powerOff",
    "releaseBrakes",
    "engageBrakes",
    "shutdown",
    "restartSafety",
    "unlockProtectiveStop",
    "moveJ",
    "moveL",
    "moveC",
    "moveP",
    "speedJ",
    "speedL",
    "stopJ",
    "stopL",
    "servoL",
    "servoC",
    "jogStart",
    "jogStop",
    "startFreedrive",
    "stopFreedrive",
    "startForceMode",
    "stopForceMode",
    "setForceModeDamping",
    "zeroForceSensor",
    "setPayload",
    "setToolOffset",
    "setGravity",
    "setUserFrame",
    "getUserFrame",
    "setJointLimits",
    "getJointLimits",
    "setCollisionLevel",
    "getCollisionLevel",
    "getStandardDigitalIn",
    "getConfigurableDigitalIn",
    "getToolDigitalIn",
    "setStandardAnalogueOut",
    "getStandardAnalogueIn",
    "getToolAnalogueIn",
    "setToolVoltage",
    "loadProgram",
    "startProgram",
    "pauseProgram",
    "stopProgram",
    "getProgramState",
    "setWatchdog",
    "getForwardKinematics",
    "getInverseKinematics",
    "isWithinLimits",
    "showMessage",
};

}  // namespace

Catalogue Catalogue::built_in() {
    Catalogue result;
    uint32_t output_id = kFirstOutputId;
    for (const Signal& signal : arm_signals()) {
        result.outputs.push_back({signal.name, output_id++, signal.type});
    }
    result.inputs = sim::inputs();
    uint16_t method_id = kFirstMethodId;
    for (const char* name : kMethodNames) {
        result.methods.push_back({name, method_id});
        method_id = static_cast<uint16_t>(method_id + kMethodIdStep);
    }
    return result;
}

}  // namespace sim
