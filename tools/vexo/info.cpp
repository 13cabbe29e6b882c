// `vexo info`: who the controller is.
#include "tools/vexo/robot.h"

namespace tool {
namespace {

const char* mode_name(uint32_t mode) {
    return mode == 1 ? "tcp1" : mode == 2 ? "tcp2" : "raw";
}

Json document_of(const VexoSessionStatus& status, double round_trip_us) {
    return {{"address", status.address},
            {"mode", mode_name(status.mode)},
            {"controller",
             {{"model", status.model},
              {"firmware", status.firmware},
              {"hardware", status.hardware},
              {"bootloader", status.bootloader}}},
            {"outputs", status.outputs},
            {"inputs", status.inputs},
            {"methods", status.methods},
            {"round_trip_us", round_trip_us}};
}

// The same as lines, the names in a column.
void print_lines(const Json& document, Output& output) {
    constexpr size_t kColumn = 16;
    for (const auto& [key, value] : document.items()) {
        if (value.is_object()) {
            print_lines(value, output);
        } else {
            const std::string name = key == "round_trip_us" ? "round trip (us)" : key;
            const std::string text = value.is_string() ? value.get<std::string>() : value.dump();
            output.text(name + std::string(kColumn - name.size(), ' ') + text + '\n');
        }
    }
}

Exit run(Context& context) {
    const Session session = open_session(context);
    int64_t round_trip_ns = 0;
    interruptible(session.get(), [&] {
        return vexo_session_ping(session.get(), limit_us(context), &round_trip_ns);
    });
    const Json document =
        document_of(status_of(session.get()), static_cast<double>(round_trip_ns) / 1e3);
    if (context.output.json()) {
        context.output.document(document);
    } else {
        print_lines(document, context.output);
    }
    return Exit::done;
}

}  // namespace

void add_info(Command& app, Context& context) {
    app.add_subcommand("info", "Show the controller's version, the mode, and the round trip")
        ->callback([&] { context.run = [&] { return run(context); }; });
}

}  // namespace tool
