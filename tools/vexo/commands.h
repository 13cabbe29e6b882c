// The commands of the tool: each tells CLI11 of itself, and leaves in the context what is to run
// when it was the one named.
#ifndef TOOLS_VEXO_COMMANDS_H
#define TOOLS_VEXO_COMMANDS_H

#include <CLI/CLI.hpp>
#include <functional>

#include "tools/vexo/failure.h"
#include "tools/vexo/options.h"
#include "tools/vexo/output.h"

namespace tool {

struct Context {
    Options options;
    Output output{options};
    std::function<Exit()> run;  // set by the command that was named
};

void add_call(CLI::App& app, Context& context);
void add_completion(CLI::App& app, Context& context);
void add_doctor(CLI::App& app, Context& context);
void add_find(CLI::App& app, Context& context);
void add_info(CLI::App& app, Context& context);
void add_list(CLI::App& app, Context& context);
void add_read(CLI::App& app, Context& context);
void add_record(CLI::App& app, Context& context);
void add_watch(CLI::App& app, Context& context);
void add_write(CLI::App& app, Context& context);

// All of the above, in the order in which --help lists them.
void add_commands(CLI::App& app, Context& context);

}  // namespace tool

#endif
