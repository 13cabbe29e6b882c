// Method calls: their typed arguments, and what the arm does on them.
#ifndef SIM_COMMANDS_H
#define SIM_COMMANDS_H

#include <optional>
#include <string_view>
#include <vector>

#include "sim/arm.h"
#include "sim/wire.h"

namespace sim {

struct Argument {
    Type type;
    Type element;     // of an array
    BytesView value;  // an array's elements lie one behind the other
};

// The arguments of a call; nothing when they do not fit in the message exactly. `count` is the
// message's argument count, in which an array counts twice.
std::optional<std::vector<Argument>> read_arguments(Reader& in, size_t count);

// A servo-joint command carries its joint values either each as an argument of its own behind
// their number, or all as one array. Nothing when the arguments are not those of the form.
enum class ServoForm { separate, array };
std::optional<SetPoint> read_set_point(const std::vector<Argument>& arguments, ServoForm form);

struct Command {
    std::string_view name;
    Port port;  // the only one on which it is accepted
    std::vector<Type> arguments;
    Status (*run)(Arm& arm, const std::vector<Argument>& arguments, Writer& reply);
};

inline constexpr std::string_view kServoCommand = "servoJ";

// Null when the arm knows no command of this name. The servo-joint command is none of these.
const Command* find_command(std::string_view name);

}  // namespace sim

#endif
