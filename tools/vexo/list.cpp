// `vexo list`: the catalogue, whole or in part.
#include <fnmatch.h>

#include <algorithm>

#include "tools/vexo/capture_reader.h"
#include "tools/vexo/catalogue.h"
#include "tools/vexo/robot.h"

namespace tool {
namespace {

struct Arguments {
    std::string kind;
    std::string type;
    std::string glob;
    bool catalogue = false;
};

std::vector<std::string> type_names() {
    std::vector<std::string> names;
    for (uint32_t type = VEXO_TYPE_CHAR; type <= VEXO_TYPE_TEXT; ++type) {
        names.emplace_back(vexo_session_type_name(type));
    }
    return names;
}

bool wanted(const VexoSessionVariable& entry, const Arguments& arguments) {
    return (arguments.kind.empty() || arguments.kind == list_name(entry.kind)) &&
           (arguments.type.empty() || arguments.type == type_of(entry)) &&
           (arguments.glob.empty() || fnmatch(arguments.glob.c_str(), entry.name, 0) == 0);
}

std::vector<VexoSessionVariable> all_rows(const Context& context) {
    if (!context.options.capture.empty()) {
        return captured_catalogue(context.options);
    }
    return all_entries(open_session(context).get());
}

Json document_of(const std::vector<VexoSessionVariable>& rows) {
    Json document = Json::array();
    for (const VexoSessionVariable& row : rows) {
        const bool method = row.kind == VEXO_SESSION_METHOD;
        document.push_back({{"kind", kind_name(row.kind)},
                            {"name", row.name},
                            {"id", row.id},
                            {"type", method ? Json() : Json(type_of(row))},
                            {"size", row.bytes}});
    }
    return document;
}

void print_table(const std::vector<VexoSessionVariable>& rows, Output& output) {
    size_t width = 0;
    for (const VexoSessionVariable& row : rows) {
        width = std::max(width, std::string_view(row.name).size());
    }
    for (const VexoSessionVariable& row : rows) {
        char line[400];
        std::snprintf(line, sizeof line, "%-7s %-*s %6u %-6s %4u\n", kind_name(row.kind),
                      static_cast<int>(width), row.name, row.id, type_of(row).c_str(), row.bytes);
        output.text(line);
    }
}

Exit run(const Arguments& arguments, Context& context) {
    std::vector<VexoSessionVariable> rows = all_rows(context);
    std::erase_if(rows, [&](const VexoSessionVariable& row) { return !wanted(row, arguments); });
    if (arguments.catalogue) {
        context.output.document(catalogue_of(rows));
    } else if (context.output.json()) {
        context.output.document(document_of(rows));
    } else {
        print_table(rows, context.output);
    }
    return Exit::done;
}

}  // namespace

void add_list(Command& app, Context& context) {
    Command* command = app.add_subcommand("list", "List the controller's variables and methods");
    const auto arguments = std::make_shared<Arguments>();
    command->add_option("KIND", arguments->kind, "only this list")
        ->one_of({"outputs", "inputs", "methods"});
    command->add_option("--type", arguments->type, "only variables of this type")
        ->type_name("TYPE")
        ->one_of(type_names());
    command->add_option("--glob", arguments->glob, "only names that match, as 'actual_*'")
        ->type_name("PATTERN");
    command->add_flag("--catalogue", arguments->catalogue, "print a file that vexo-sim -c takes");
    command->callback([&context, arguments] {
        context.run = [&, arguments] { return run(*arguments, context); };
    });
}

}  // namespace tool
