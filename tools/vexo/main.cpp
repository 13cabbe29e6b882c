// vexo: what a controller shows and does, from the command line.
#include <CLI/CLI.hpp>
#include <algorithm>

#include "tools/vexo/commands.h"
#include "tools/vexo/explain.h"
#include "tools/vexo/interrupt.h"

namespace {

using tool::Exit;
using tool::Failure;

int report(tool::Context& context, const Failure& failure) {
    context.output.failure(failure);
    return static_cast<int>(failure.status);
}

// The options have no values yet when the command line cannot be read.
int usage(tool::Context& context, const CLI::App& app, const CLI::ParseError& error, int argc,
          char** argv) {
    context.options.json =
        std::any_of(argv, argv + argc, [](const std::string& word) { return word == "--json"; });
    const std::vector<std::string> unknown = app.remaining();
    const std::string cause =
        unknown.empty() ? error.what() : "There is no command or option " + unknown.front();
    return report(context, Failure(Exit::usage, "usage", cause,
                                   "vexo --help lists commands and options, vexo COMMAND --help "
                                   "those of a command"));
}

int run(tool::Context& context) {
    try {
        tool::handle_signals();
        const Exit status = context.run();
        context.output.finish();
        return static_cast<int>(status);
    } catch (const Failure& failure) {
        return report(context, tool::explained(failure, context.options));
    } catch (const std::exception& error) {
        return report(context, Failure(Exit::failed, "failed", error.what(), ""));
    }
}

}  // namespace

int main(int argc, char** argv) {
    tool::Context context;
    CLI::App parser(
        "Looks at a robot controller, asks it, writes to it, and measures the way to it.", "vexo");
    parser.fallthrough();
    parser.require_subcommand(1);
    tool::Command app(parser);
    tool::add_options(app, context.options);
    tool::add_commands(app, context);
    try {
        parser.parse(argc, argv);
    } catch (const CLI::Success& help) {
        return parser.exit(help);
    } catch (const CLI::ParseError& error) {
        return usage(context, parser, error, argc, argv);
    }
    return run(context);
}
