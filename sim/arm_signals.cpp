#include "sim/arm_signals.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

namespace sim {

namespace {

// The type code that goes with a C++ type, so that no signal states its type twice.
template <typename T>
constexpr Type type_of = T::has_no_type_code;
template <>
constexpr Type type_of<char> = Type::character;
template <>
constexpr Type type_of<bool> = Type::boolean;
template <>
constexpr Type type_of<uint8_t> = Type::u8;
template <>
constexpr Type type_of<uint16_t> = Type::u16;
template <>
constexpr Type type_of<uint32_t> = Type::u32;
template <>
constexpr Type type_of<uint64_t> = Type::u64;
template <>
constexpr Type type_of<int8_t> = Type::i8;
template <>
constexpr Type type_of<int16_t> = Type::i16;
template <>
constexpr Type type_of<int32_t> = Type::i32;
template <>
constexpr Type type_of<int64_t> = Type::i64;
template <>
constexpr Type type_of<float> = Type::f32;
template <>
constexpr Type type_of<double> = Type::f64;
template <>
constexpr Type type_of<std::array<double, 3>> = Type::vector3;
template <>
constexpr Type type_of<std::array<double, 6>> = Type::vector6;
template <>
constexpr Type type_of<std::array<float, 3>> = Type::vector3_f32;
template <>
constexpr Type type_of<std::array<int32_t, 6>> = Type::vector6_i32;
template <>
constexpr Type type_of<std::array<uint32_t, 6>> = Type::vector6_u32;
template <>
constexpr Type type_of<std::array<float, 6>> = Type::vector6_f32;
template <>
constexpr Type type_of<std::string> = Type::text;

template <typename T>
void put(Writer& out, const T& value) {
    out.number(value);
}

template <typename T, size_t n>
void put(Writer& out, const std::array<T, n>& values) {
    for (const T value : values) {
        out.number(value);
    }
}

void put(Writer& out, const std::string& text) {
    std::array<uint8_t, 255> field{};
    std::copy_n(text.begin(), std::min(text.size(), field.size()), field.begin());
    out.bytes(field);
}

constexpr std::array<const char*, 6> kPoseAxes{"x", "y", "z", "rx", "ry", "rz"};

// Collects signals. `value` takes the arm, and for families also the index, and its result's type
// decides the signal's type.
class Collector {
public:
    template <typename Value>
    void add(const std::string& name, Value value) {
        using T = std::decay_t<decltype(value(std::declval<const Arm&>()))>;
        signals.push_back(
            {name, type_of<T>, [value](const Arm& arm, Writer& out) { put(out, value(arm)); }});
    }

    // NAME_0 to NAME_(count-1).
    template <typename Value>
    void family(const std::string& name, size_t count, Value value, size_t first = 0) {
        for (size_t i = 0; i < count; ++i) {
            add(name + "_" + std::to_string(first + i),
                [value, i](const Arm& arm) { return value(arm, i); });
        }
    }

    // NAMEs as a vector, and NAME_1 to NAME_6.
    template <typename Value>
    void joints(const std::string& name, Value value) {
        using T = std::decay_t<decltype(value(std::declval<const Arm&>(), size_t{}))>;
        add(name + "s", [value](const Arm& arm) {
            std::array<T, 6> all;
            for (size_t i = 0; i < all.size(); ++i) {
                all[i] = value(arm, i);
            }
            return all;
        });
        family(name, 6, value, 1);
    }

    // NAME as a vector, and NAME_x to NAME_rz.
    template <typename Value>
    void pose(const std::string& name, Value value) {
        add(name, value);
        for (size_t i = 0; i < kPoseAxes.size(); ++i) {
            add(name + "_" + kPoseAxes[i], [value, i](const Arm& arm) { return value(arm)[i]; });
        }
    }

    std::vector<Signal> signals;
};

double temperature(const Arm& arm, size_t joint) {
    return 31.0 + static_cast<double>(joint) + 6.0 * (1 - std::exp(-arm.time / 600)) +
           0.02 * std::abs(arm.torque(joint));
}

double current(const Arm& arm, size_t joint) {
    return arm.torque(joint) / 11.5;
}

double power(const Arm& arm) {
    double watts = 85;
    for (size_t joint = 0; joint < arm.velocity.size(); ++joint) {
        watts +=
            std::abs(arm.torque(joint) * arm.velocity[joint]) + 1.8 * std::abs(current(arm, joint));
    }
    return watts;
}

// How fast the flange moves, from its poses a moment apart.
Pose flange_speed(const Arm& arm) {
    constexpr double kMoment = 1e-4;
    Joints before = arm.position;
    for (size_t joint = 0; joint < before.size(); ++joint) {
        before[joint] -= arm.velocity[joint] * kMoment;
    }
    Pose speed = flange_pose(arm.position);
    const Pose earlier = flange_pose(before);
    for (size_t i = 0; i < speed.size(); ++i) {
        speed[i] = std::remainder(speed[i] - earlier[i], 4 * std::acos(0.0)) / kMoment;
    }
    return speed;
}

void add_times_and_counters(Collector& c) {
    c.add("controller_time", [](const Arm& a) { return a.time + a.ahead; });
    c.add("controller_time_us",
          [](const Arm& a) { return static_cast<uint64_t>((a.time + a.ahead) * 1e6); });
    c.add("package_counter", [](const Arm& a) { return a.package; });
    c.add("cycle_counter", [](const Arm& a) { return a.cycles; });
    c.add("uptime_seconds", [](const Arm& a) { return static_cast<uint32_t>(a.time); });
    c.add("servo_sequence", [](const Arm& a) { return a.sequence; });
    c.add("servo_set_point_count", [](const Arm& a) { return a.set_points; });
    c.add("input_package_count", [](const Arm& a) { return a.inputs; });
    c.add("error_count", [](const Arm& a) { return a.error_count; });
}

void add_modes(Collector& c) {
    c.add("robot_mode", [](const Arm& a) -> int32_t { return a.error_code != 0 ? 3 : 7; });
    c.add("safety_mode", [](const Arm& a) -> int32_t { return a.error_code != 0 ? 2 : 1; });
    c.add("operation_mode", [](const Arm&) -> uint8_t { return 2; });
    c.add("program_state", [](const Arm& a) -> uint8_t { return a.servo_active ? 1 : 0; });
    c.add("error_code", [](const Arm& a) { return a.error_code; });
    c.add("error_active", [](const Arm& a) { return a.error_code != 0; });
    c.add("error_text", [](const Arm& a) {
        return a.error_code == 0 ? std::string() : "error " + std::to_string(a.error_code);
    });
    c.add("servo_active", [](const Arm& a) { return a.servo_active; });
    c.add("motion_active", [](const Arm& a) { return a.moving(); });
    c.add("inertia_compensation_active", [](const Arm& a) { return a.inertia_compensation; });
    c.add("torque_compensation_active", [](const Arm& a) { return a.torque_compensation; });
    c.add("sensor_force_input_active", [](const Arm& a) { return a.sensor_force; });
    c.add("log_output_active", [](const Arm& a) { return a.log_output; });
    c.add("emergency_stop_active", [](const Arm&) { return false; });
    c.add("speed_override", [](const Arm& a) { return a.speed_percent; });
    c.add("controller_name", [](const Arm&) { return std::string("simulated six-axis arm"); });
    c.add("program_name", [](const Arm&) { return std::string("external control"); });
}

void add_joints(Collector& c) {
    c.joints("target_joint_position", [](const Arm& a, size_t j) { return a.target[j]; });
    c.joints("actual_joint_position", [](const Arm& a, size_t j) { return a.position[j]; });
    c.joints("target_joint_velocity", [](const Arm& a, size_t j) { return a.target_velocity(j); });
    c.joints("actual_joint_velocity", [](const Arm& a, size_t j) { return a.velocity[j]; });
    c.joints("actual_joint_torque", [](const Arm& a, size_t j) { return a.torque(j); });
    c.joints("actual_joint_current", [](const Arm& a, size_t j) { return current(a, j); });
    c.joints("joint_position_error",
             [](const Arm& a, size_t j) { return a.target[j] - a.position[j]; });
    c.joints("joint_temperature",
             [](const Arm& a, size_t j) { return static_cast<float>(temperature(a, j)); });
    c.joints("joint_voltage", [](const Arm& a, size_t j) {
        return static_cast<float>(48.0 - 0.05 * std::abs(current(a, j)));
    });
    c.joints("joint_encoder_count", [](const Arm& a, size_t j) {
        return static_cast<int32_t>(std::lround(a.position[j] * 1e6));
    });
    c.joints("joint_status_word",
             [](const Arm& a, size_t) -> uint32_t { return a.error_code != 0 ? 0x0218 : 0x0237; });
    c.joints("joint_power",
             [](const Arm& a, size_t j) { return std::abs(a.torque(j) * a.velocity[j]); });
    c.family(
        "joint_mode", 6, [](const Arm& a, size_t) -> uint8_t { return a.error_code != 0 ? 1 : 3; },
        1);
    c.family(
        "joint_brake_released", 6, [](const Arm& a, size_t) { return a.error_code == 0; }, 1);
}

void add_tool(Collector& c) {
    c.pose("actual_tcp_pose", [](const Arm& a) { return flange_pose(a.position); });
    c.pose("target_tcp_pose", [](const Arm& a) { return flange_pose(a.target); });
    c.pose("actual_tcp_speed", [](const Arm& a) { return flange_speed(a); });
    c.pose("actual_tcp_force", [](const Arm& a) {
        const double weight = a.sensor_force ? -9.81 * 1.2 : 0;
        return Pose{0, 0, weight, 0, 0, 0};
    });
    c.add("payload_mass", [](const Arm&) { return 1.2; });
    c.add("payload_centre", [](const Arm&) { return std::array<double, 3>{0, 0, 0.045}; });
    c.add("tool_offset", [](const Arm&) { return Pose{}; });
    c.add("gravity", [](const Arm&) { return std::array<double, 3>{0, 0, -9.81}; });
    c.add("tool_acceleration", [](const Arm&) { return std::array<float, 3>{0, 0, -9.81F}; });
    c.add("tool_temperature", [](const Arm& a) { return static_cast<int16_t>(temperature(a, 5)); });
    c.add("tool_voltage", [](const Arm&) -> uint8_t { return 24; });
    c.add("tool_current", [](const Arm&) { return 0.11F; });
}

void add_digital(Collector& c) {
    c.add("digital_input_bits", [](const Arm& a) { return a.digital_inputs; });
    c.add("digital_output_bits", [](const Arm& a) { return a.digital_outputs; });
    for (const DigitalBank& bank : {kStandardBank, kConfigurableBank, kToolBank}) {
        const std::string name = bank.name;
        const unsigned first = bank.first_bit;
        c.family(name + "_digital_input", bank.count, [first](const Arm& a, size_t i) {
            return (a.digital_inputs >> (first + i) & 1) != 0;
        });
        c.family(name + "_digital_output", bank.count, [first](const Arm& a, size_t i) {
            return (a.digital_outputs >> (first + i) & 1) != 0;
        });
    }
}

void add_analogue_and_supply(Collector& c) {
    c.family("standard_analogue_input", 4, [](const Arm& a, size_t i) {
        return 5.0 + std::sin(a.time * static_cast<double>(i + 1));
    });
    c.family("standard_analogue_output", 4, [](const Arm&, size_t) { return 0.0; });
    c.family("tool_analogue_input", 2, [](const Arm& a, size_t i) {
        return 2.5 + 0.5 * std::cos(a.time * static_cast<double>(i + 1));
    });
    c.add("robot_voltage", [](const Arm&) { return 48.0F; });
    c.add("robot_current", [](const Arm& a) { return static_cast<float>(power(a) / 48); });
    c.add("robot_power", [](const Arm& a) { return power(a); });
    c.add("robot_energy_mj", [](const Arm& a) { return static_cast<int64_t>(a.time * 85e3); });
    c.add("controller_temperature", [](const Arm&) -> int8_t { return 38; });
    c.add("controller_fan_speed", [](const Arm&) -> uint16_t { return 2150; });
    c.add("controller_load", [](const Arm& a) -> uint8_t { return a.moving() ? 31 : 17; });
    c.add("controller_series", [](const Arm&) { return 'C'; });
}

std::vector<Signal> collect() {
    Collector c;
    add_times_and_counters(c);
    add_modes(c);
    add_joints(c);
    add_tool(c);
    add_digital(c);
    add_analogue_and_supply(c);
    return std::move(c.signals);
}

}  // namespace

const std::vector<Signal>& arm_signals() {
    static const std::vector<Signal> signals = collect();
    return signals;
}

const Signal* find_signal(const std::string& name, Type type) {
    static const auto by_name = [] {
        std::unordered_map<std::string, const Signal*> map;
        for (const Signal& signal : arm_signals()) {
            map[signal.name] = &signal;
        }
        return map;
    }();
    const auto found = by_name.find(name);
    return found != by_name.end() && found->second->type == type ? found->second : nullptr;
}

}  // namespace sim
