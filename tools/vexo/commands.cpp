#include "tools/vexo/commands.h"

namespace tool {
namespace {

using AddCommand = void (*)(Command& app, Context& context);

constexpr AddCommand kCommands[] = {
    add_info,    add_list,       add_find,   add_read,    add_watch,  add_write,      add_call,
    add_latency, add_servo_test, add_record, add_convert, add_doctor, add_completion,
};

}  // namespace

void add_commands(Command& app, Context& context) {
    for (const AddCommand add : kCommands) {
        add(app, context);
    }
}

}  // namespace tool
