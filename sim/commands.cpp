#include "sim/commands.h"

#include <algorithm>
#include <cmath>

namespace sim {

namespace {

using Arguments = std::vector<Argument>;

template <typename T>
T value_of(const Argument& argument) {
    return Reader(argument.value).number<T>();
}

Joints joints_of(const Argument& argument) {
    Reader in(argument.value);
    Joints joints;
    for (double& joint : joints) {
        joint = in.number<double>();
    }
    return joints;
}

std::optional<Argument> read_argument(Reader& in) {
    Argument argument{static_cast<Type>(in.number<uint8_t>()), Type::character, {}};
    size_t length = width(argument.type);
    if (argument.type == Type::array) {
        const auto dimensions = in.number<uint8_t>();
        const auto count = in.number<uint8_t>();
        argument.element = static_cast<Type>(in.number<uint8_t>());
        length = width(argument.element) * count;
        if (dimensions != 1 || width(argument.element) == 0) {
            return std::nullopt;
        }
    } else if (length == 0) {
        return std::nullopt;
    }
    argument.value = in.bytes(length);
    return in.ok() ? std::optional(argument) : std::nullopt;
}

// An array without elements is followed by the room of one.
bool ends_properly(const Reader& in, const Arguments& arguments) {
    const bool empty_array = !arguments.empty() && arguments.back().type == Type::array &&
                             arguments.back().value.empty();
    return in.left() == 0 || (empty_array && in.left() == width(arguments.back().element));
}

// Takes arguments one after another; the first that is missing or of another type spoils the walk.
class Walk {
public:
    explicit Walk(const Arguments& arguments) : next_(arguments.begin()), end_(arguments.end()) {}

    bool at(Type type) const { return next_ != end_ && next_->type == type; }
    const Argument* take(Type type) {
        ok_ = ok_ && at(type);
        return ok_ ? &*next_++ : nullptr;
    }
    template <typename T>
    T take(Type type) {
        const Argument* argument = take(type);
        return argument != nullptr ? value_of<T>(*argument) : T{};
    }
    bool finished() const { return ok_ && next_ == end_; }

private:
    Arguments::const_iterator next_;
    Arguments::const_iterator end_;
    bool ok_ = true;
};

void take_separate_joints(Walk& walk, std::vector<double>& joints) {
    const auto count = walk.take<uint8_t>(Type::u8);
    for (unsigned i = 0; i < count; ++i) {
        joints.push_back(walk.take<double>(Type::f64));
    }
}

bool take_joint_array(Walk& walk, std::vector<double>& joints) {
    const Argument* array = walk.take(Type::array);
    if (array == nullptr || array->element != Type::f64) {
        return false;
    }
    Reader in(array->value);
    while (in.left() > 0) {
        joints.push_back(in.number<double>());
    }
    return true;
}

Status set_speed(Arm& arm, const Arguments& arguments, Writer&) {
    const auto percent = value_of<double>(arguments[0]);
    if (!(percent >= 0 && percent <= 100)) {
        return Status::bad_argument;
    }
    arm.speed_percent = percent;
    return Status::accepted;
}

template <const DigitalBank& bank>
Status set_output(Arm& arm, const Arguments& arguments, Writer&) {
    const auto number = value_of<uint8_t>(arguments[0]);
    const auto state = value_of<uint8_t>(arguments[1]);
    if (number >= bank.count || state > 1) {
        return Status::bad_argument;
    }
    const uint64_t bit = uint64_t{1} << (bank.first_bit + number);
    arm.digital_outputs = state != 0 ? arm.digital_outputs | bit : arm.digital_outputs & ~bit;
    return Status::accepted;
}

template <uint64_t Arm::*bits>
Status get_bits(Arm& arm, const Arguments&, Writer& reply) {
    reply.number(arm.*bits);
    return Status::accepted;
}

template <bool Arm::*flag, bool value>
Status set_flag(Arm& arm, const Arguments&, Writer&) {
    arm.*flag = value;
    return Status::accepted;
}

Status stop_servo(Arm& arm, const Arguments& arguments, Writer&) {
    if (!std::isfinite(value_of<double>(arguments[0]))) {
        return Status::bad_argument;
    }
    arm.halt();
    return Status::accepted;
}

Status reset_error(Arm& arm, const Arguments&, Writer&) {
    arm.error_code = 0;
    return Status::accepted;
}

const Command commands[] = {
    {"setPercentVelocity", Port::io, {Type::f64}, set_speed},
    {"setStandardDigitalOut", Port::io, {Type::u8, Type::boolean}, set_output<kStandardBank>},
    {"setConfigurableDigitalOut",
     Port::io,
     {Type::u8, Type::boolean},
     set_output<kConfigurableBank>},
    {"setToolDigitalOut", Port::io, {Type::u8, Type::boolean}, set_output<kToolBank>},
    {"getAllDigitalInputBits", Port::io, {}, get_bits<&Arm::digital_inputs>},
    {"getAllDigitalOutputBits", Port::io, {}, get_bits<&Arm::digital_outputs>},
    {"servoStop", Port::control, {Type::f64}, stop_servo},
    {"resetError", Port::io, {}, reset_error},
    {"startInertiaComp", Port::io, {}, set_flag<&Arm::inertia_compensation, true>},
    {"stopInertiaComp", Port::io, {}, set_flag<&Arm::inertia_compensation, false>},
    {"startTorqueComp", Port::io, {}, set_flag<&Arm::torque_compensation, true>},
    {"stopTorqueComp", Port::io, {}, set_flag<&Arm::torque_compensation, false>},
    {"startLogOutput", Port::io, {}, set_flag<&Arm::log_output, true>},
    {"startSensorForceInput", Port::io, {}, set_flag<&Arm::sensor_force, true>},
    {"stopSensorForceInput", Port::io, {}, set_flag<&Arm::sensor_force, false>},
};

}  // namespace

std::optional<std::vector<Argument>> read_arguments(Reader& in, size_t count) {
    std::vector<Argument> arguments;
    arguments.reserve(count);
    size_t counted = 0;
    while (counted < count) {
        const auto argument = read_argument(in);
        if (!argument) {
            return std::nullopt;
        }
        arguments.push_back(*argument);
        counted += argument->type == Type::array ? 2 : 1;
    }
    return counted == count && ends_properly(in, arguments) ? std::optional(arguments)
                                                            : std::nullopt;
}

std::optional<SetPoint> read_set_point(const std::vector<Argument>& arguments, ServoForm form) {
    Walk walk(arguments);
    SetPoint point;
    point.value = walk.take<double>(Type::f64);
    point.sequence = walk.take<uint32_t>(Type::u32);
    point.flag = walk.take<uint8_t>(Type::u8);
    if (walk.at(Type::vector6)) {
        point.vector = joints_of(*walk.take(Type::vector6));
    }
    if (form == ServoForm::separate) {
        take_separate_joints(walk, point.joints);
    } else if (!take_joint_array(walk, point.joints)) {
        return std::nullopt;
    }
    const bool finite = std::all_of(point.joints.begin(), point.joints.end(),
                                    [](double joint) { return std::isfinite(joint); });
    return walk.finished() && finite ? std::optional(point) : std::nullopt;
}

const Command* find_command(std::string_view name) {
    const auto* found = std::find_if(std::begin(commands), std::end(commands),
                                     [&](const Command& command) { return command.name == name; });
    return found != std::end(commands) ? found : nullptr;
}

}  // namespace sim
