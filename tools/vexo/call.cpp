// `vexo call`: a method of the controller.
#include <algorithm>
#include <cstring>

#include "tools/vexo/literal.h"
#include "tools/vexo/robot.h"

namespace tool {
namespace {

constexpr size_t kReplyRoom = 65536;

struct Arguments {
    std::string method;
    std::vector<std::string> values;
    bool yes = false;
};

// The catalogue does not say what methods take. These are known.
struct Signature {
    const char* method;
    std::vector<uint32_t> types;
};

const Signature kSignatures[] = {
    {"setPercentVelocity", {VEXO_TYPE_F64}},
    {"setStandardDigitalOut", {VEXO_TYPE_U8, VEXO_TYPE_BOOL}},
    {"setConfigurableDigitalOut", {VEXO_TYPE_U8, VEXO_TYPE_BOOL}},
    {"setToolDigitalOut", {VEXO_TYPE_U8, VEXO_TYPE_BOOL}},
    {"servoStop", {VEXO_TYPE_F64}},
};

std::optional<uint32_t> expected_type(const std::string& method, size_t index) {
    const auto* known = std::find_if(std::begin(kSignatures), std::end(kSignatures),
                                     [&](const Signature& each) { return method == each.method; });
    return known != std::end(kSignatures) && index < known->types.size()
               ? std::optional(known->types[index])
               : std::nullopt;
}

// By its name; what stops a movement is not held up.
bool moves(const std::string& method) {
    std::string name = method;
    std::transform(name.begin(), name.end(), name.begin(), ::tolower);
    const auto begins_with = [&](const char* word) { return name.rfind(word, 0) == 0; };
    constexpr const char* kVerbs[] = {"move",    "speed", "servo", "jog",  "start",
                                      "release", "run",   "play",  "home", "resume"};
    return name.find("stop") == std::string::npos &&
           std::any_of(std::begin(kVerbs), std::end(kVerbs), begins_with);
}

void refuse_without_yes(const Arguments& arguments) {
    if (moves(arguments.method) && !arguments.yes) {
        throw Failure(Exit::usage, "needs_yes", arguments.method + " may move the robot",
                      "see that nobody is in its way, and say --yes");
    }
}

std::vector<Argument> parse(const Arguments& arguments) {
    std::vector<Argument> parsed;
    for (size_t i = 0; i < arguments.values.size(); ++i) {
        parsed.push_back(parse_argument(arguments.values[i], expected_type(arguments.method, i)));
    }
    return parsed;
}

// The session does not say whose failure it is, nor that the types may be to blame.
Failure told_of(const std::string& method, Failure failure) {
    failure.cause = method + ": " + failure.cause;
    if (failure.status == Exit::refused) {
        failure.remedy =
            "see that number, types (u8:1, f64:0.5) and values of its arguments are right";
        failure.from_session = false;
    }
    return failure;
}

Bytes call(VexoSession* session, const std::string& method, const std::vector<Argument>& arguments,
           int64_t limit) {
    std::vector<VexoSessionArgument> views;
    for (const Argument& argument : arguments) {
        views.push_back(argument.view());
    }
    Bytes reply(kReplyRoom);
    size_t bytes = reply.size();
    try {
        interruptible(session, [&] {
            return vexo_session_call(session, method.c_str(), views.data(),
                                     static_cast<uint32_t>(views.size()), VEXO_SESSION_PORT_BY_NAME,
                                     reply.data(), &bytes, limit);
        });
    } catch (Failure& failure) {
        throw told_of(method, failure);
    }
    reply.resize(std::min(bytes, reply.size()));
    return reply;
}

std::string hex(const Bytes& bytes) {
    std::string text;
    for (const uint8_t byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

// A reply that is as wide as a number, read as one.
std::optional<uint64_t> number_in(const Bytes& reply) {
    if (reply.size() != 1 && reply.size() != 2 && reply.size() != 4 && reply.size() != 8) {
        return std::nullopt;
    }
    uint64_t value = 0;
    std::memcpy(&value, reply.data(), reply.size());
    return value;
}

void print(const Bytes& reply, Output& output) {
    const std::optional<uint64_t> number = number_in(reply);
    if (output.json()) {
        Json document = {{"status", 0}, {"reply", hex(reply)}};
        if (number) {
            document["number"] = *number;
        }
        output.document(document);
        return;
    }
    std::string line = "status 0";
    if (!reply.empty()) {
        line += "  reply " + hex(reply);
        line += number ? " (" + std::to_string(*number) + ')' : "";
    }
    output.text(line + '\n');
}

Exit run(const Arguments& arguments, Context& context) {
    refuse_without_yes(arguments);
    const std::vector<Argument> parsed = parse(arguments);
    const Session session = open_session(context);
    require_names(session.get(), VEXO_SESSION_METHOD, {arguments.method});
    print(call(session.get(), arguments.method, parsed, limit_us(context)), context.output);
    return Exit::done;
}

}  // namespace

void add_call(Command& app, Context& context) {
    Command* command = app.add_subcommand("call", "Call a method of the controller");
    const auto arguments = std::make_shared<Arguments>();
    command->add_option("METHOD", arguments->method, "its name")->required();
    command->add_option("ARG", arguments->values,
                        "typed as it looks (1, 0.5, true, 1,2,3, word), or as u8:1, f64:0.5, "
                        "f64:1,2,3, text:1");
    command->add_flag("--yes", arguments->yes, "for methods that move the robot");
    command->callback([&context, arguments] {
        context.run = [&, arguments] { return run(*arguments, context); };
    });
}

}  // namespace tool
