// The commands of the tool: each tells the command line of itself, and leaves in the context what
// is to run when it was the one named.
#ifndef TOOLS_VEXO_COMMANDS_H
#define TOOLS_VEXO_COMMANDS_H

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

void add_call(Command& app, Context& context);
void add_completion(Command& app, Context& context);
void add_convert(Command& app, Context& context);
void add_doctor(Command& app, Context& context);
void add_find(Command& app, Context& context);
void add_info(Command& app, Context& context);
void add_latency(Command& app, Context& context);
void add_list(Command& app, Context& context);
void add_read(Command& app, Context& context);
void add_record(Command& app, Context& context);
void add_servo_test(Command& app, Context& context);
void add_watch(Command& app, Context& context);
void add_write(Command& app, Context& context);

// All of the above, in the order in which --help lists them.
void add_commands(Command& app, Context& context);

}  // namespace tool

#endif
