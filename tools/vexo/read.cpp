// `vexo read`: the values of one package.
#include "tools/vexo/capture_reader.h"
#include "tools/vexo/rows.h"

namespace tool {
namespace {

Exit run(const std::vector<std::string>& names, Context& context) {
    const std::unique_ptr<Source> source = open_source(context, names);
    const std::optional<Row> row = source->next(TimePoint::max());
    if (!row) {
        throw Failure(Exit::unreachable, "interrupted", "Interrupted before a package came", "");
    }
    if (context.output.json()) {
        context.output.document(document_of(source->fields(), *row));
        return Exit::done;
    }
    for (const VexoSessionVariable& field : source->fields()) {
        context.output.text(std::string(field.name) + '=' + text_of(field, row->package) + '\n');
    }
    return Exit::done;
}

}  // namespace

void add_read(Command& app, Context& context) {
    Command* command = app.add_subcommand("read", "Show the values of one package");
    const auto names = std::make_shared<std::vector<std::string>>();
    command->add_option("NAME", *names, "of an output, or of an input")->required();
    add_capture_options(*command, context.options);
    command->callback(
        [&context, names] { context.run = [&, names] { return run(*names, context); }; });
}

}  // namespace tool
