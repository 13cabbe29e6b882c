// `vexo convert`: from one form of a recording to another.
#include "tools/vexo/convert/convert.h"
#include "tools/vexo/commands.h"
#include "tools/vexo/values.h"

namespace tool {
namespace {

struct Arguments {
    std::string in;
    std::string out;
    std::string topic;
    bool repair = false;
};

bool ends_with(const std::string& name, std::string_view end) {
    return name.size() >= end.size() &&
           name.compare(name.size() - end.size(), end.size(), end) == 0;
}

Converted from_tape(const Arguments& arguments) {
    Tape tape(arguments.in);
    if (!tape.found.complete && !arguments.repair) {
        throw Failure(Exit::failed, "file", arguments.in + " was cut, or is damaged",
                      "add --repair to take what is sound of it");
    }
    return ends_with(arguments.out, ".csv") ? tape_to_csv(tape, arguments.topic, arguments.out)
                                            : repair_tape(tape, arguments.out);
}

Converted convert(const Arguments& arguments) {
    const bool to_csv = ends_with(arguments.out, ".csv");
    const bool to_tape = ends_with(arguments.out, ".mcap");
    if (ends_with(arguments.in, ".mcap") && (to_csv || (to_tape && arguments.repair))) {
        return from_tape(arguments);
    }
    if (ends_with(arguments.in, ".csv") && to_tape) {
        return csv_to_tape(arguments.in, arguments.out);
    }
    if ((ends_with(arguments.in, ".pcap") || ends_with(arguments.in, ".pcapng")) && to_tape) {
        return capture_to_tape(arguments.in, arguments.out);
    }
    throw Failure(Exit::usage, "usage",
                  "There is no way from " + arguments.in + " to " + arguments.out,
                  "there is from .mcap to .csv, from .csv, .pcap and .pcapng to .mcap, and from "
                  ".mcap to .mcap with --repair");
}

Exit run(const Arguments& arguments, Context& context) {
    const Converted converted = convert(arguments);
    if (context.output.json()) {
        context.output.document({{"file", arguments.out},
                                 {"packages", converted.packages},
                                 {"skipped", converted.skipped}});
    } else {
        context.output.note(arguments.out + ": " + counted(converted.packages, "package") + ", " +
                            counted(converted.skipped, "place") + " skipped");
    }
    return converted.skipped == 0 ? Exit::done : Exit::incomplete;
}

}  // namespace

void add_convert(Command& app, Context& context) {
    Command* command =
        app.add_subcommand("convert", "Convert recordings: MCAP to CSV and back, pcap to MCAP");
    const auto arguments = std::make_shared<Arguments>();
    command->add_option("IN", arguments->in, "a .mcap, .csv, .pcap or .pcapng file")->required();
    command->add_option("OUT", arguments->out, "a .mcap or .csv file")->required();
    command->add_option("--topic", arguments->topic, "the channel to take, where there are several")
        ->type_name("TOPIC");
    command->add_flag("--repair", arguments->repair,
                      "take what is sound of a recording that was cut, and make it complete");
    command->callback([&context, arguments] {
        context.run = [&, arguments] { return run(*arguments, context); };
    });
}

}  // namespace tool
