// `vexo find`: the rows of names, and for unknown ones the nearest that there are.
#include "tools/vexo/robot.h"

namespace tool {
namespace {

constexpr uint32_t kKinds[] = {VEXO_SESSION_OUTPUT, VEXO_SESSION_INPUT, VEXO_SESSION_METHOD};
constexpr uint32_t kAnyKind = VEXO_SESSION_OUTPUT | VEXO_SESSION_INPUT | VEXO_SESSION_METHOD;
constexpr uint32_t kNearest = 3;

Json found_row(const VexoSessionVariable& entry) {
    const bool method = entry.kind == VEXO_SESSION_METHOD;
    return {{"name", entry.name},
            {"found", true},
            {"kind", kind_name(entry.kind)},
            {"type", method ? Json() : Json(type_of(entry))},
            {"nearest", Json::array()}};
}

Json unknown_row(VexoSession* session, const std::string& name) {
    VexoSessionVariable nearest[kNearest] = {sized<VexoSessionVariable>()};
    const int32_t count =
        checked(vexo_session_nearest(session, kAnyKind, name.c_str(), nearest, kNearest));
    Json names = Json::array();
    for (int32_t i = 0; i < count; ++i) {
        names.push_back(nearest[i].name);
    }
    return {
        {"name", name}, {"found", false}, {"kind", Json()}, {"type", Json()}, {"nearest", names}};
}

// A name may stand in several lists.
void add_rows(VexoSession* session, const std::string& name, Json& rows) {
    const size_t before = rows.size();
    for (const uint32_t kind : kKinds) {
        auto entry = sized<VexoSessionVariable>();
        const int32_t result = vexo_session_find(session, kind, name.c_str(), &entry);
        if (result == VEXO_SESSION_OK) {
            rows.push_back(found_row(entry));
        } else if (result != VEXO_SESSION_UNKNOWN_NAME) {
            checked(result);
        }
    }
    if (rows.size() == before) {
        rows.push_back(unknown_row(session, name));
    }
}

std::string line_of(const Json& row) {
    std::string line = row["name"].get<std::string>();
    if (row["found"]) {
        line += "  " + row["kind"].get<std::string>();
        return row["type"].is_null() ? line : line + "  " + row["type"].get<std::string>();
    }
    line += "  unknown; nearest:";
    for (const Json& name : row["nearest"]) {
        line += ' ' + name.get<std::string>();
    }
    return line;
}

Exit run(const std::vector<std::string>& names, Context& context) {
    const Session session = open_session(context);
    Json rows = Json::array();
    for (const std::string& name : names) {
        add_rows(session.get(), name, rows);
    }
    bool all_found = true;
    for (const Json& row : rows) {
        all_found = all_found && row["found"].get<bool>();
        if (!context.output.json()) {
            context.output.text(line_of(row) + '\n');
        }
    }
    if (context.output.json()) {
        context.output.document(rows);
    }
    return all_found ? Exit::done : Exit::failed;
}

}  // namespace

void add_find(Command& app, Context& context) {
    Command* command = app.add_subcommand("find", "Show the rows of names, or the nearest names");
    const auto names = std::make_shared<std::vector<std::string>>();
    command->add_option("NAME", *names, "of a variable or method")->required();
    command->callback(
        [&context, names] { context.run = [&, names] { return run(*names, context); }; });
}

}  // namespace tool
