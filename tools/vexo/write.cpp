// `vexo write`: values for inputs, in one package.
#include "tools/vexo/literal.h"
#include "tools/vexo/live.h"
#include "tools/vexo/values.h"

namespace tool {
namespace {

struct Arguments {
    std::vector<std::string> assignments;
    double hold_s = 0;
};

struct Assignment {
    std::string name;
    std::string value;
};

Failure usage(const std::string& cause) {
    return Failure(Exit::usage, "usage", cause, "vexo write NAME=VALUE NAME=1,2,3");
}

std::vector<Assignment> parse(const std::vector<std::string>& texts) {
    std::vector<Assignment> assignments;
    for (const std::string& text : texts) {
        const size_t sign = text.find('=');
        if (sign == std::string::npos || sign == 0) {
            throw usage('"' + text + "\" is no NAME=VALUE");
        }
        const Assignment next{text.substr(0, sign), text.substr(sign + 1)};
        for (const Assignment& before : assignments) {
            if (before.name == next.name) {
                throw usage('"' + next.name + "\" is given twice");
            }
        }
        assignments.push_back(next);
    }
    return assignments;
}

std::vector<std::string> names_of(const std::vector<Assignment>& assignments) {
    std::vector<std::string> names;
    for (const Assignment& assignment : assignments) {
        names.push_back(assignment.name);
    }
    return names;
}

std::vector<VexoSessionVariable> fields_of(VexoSession* session,
                                           const std::vector<std::string>& names) {
    require_names(session, VEXO_SESSION_INPUT, names);
    std::vector<VexoSessionVariable> fields;
    uint32_t offset = 0;
    for (const std::string& name : names) {
        auto field = sized<VexoSessionVariable>();
        checked(vexo_session_find(session, VEXO_SESSION_INPUT, name.c_str(), &field));
        field.offset = std::exchange(offset, offset + field.bytes);
        fields.push_back(field);
    }
    return fields;
}

Bytes packed(const std::vector<VexoSessionVariable>& fields,
             const std::vector<Assignment>& assignments) {
    Bytes values;
    for (size_t i = 0; i < fields.size(); ++i) {
        const Bytes value = packed_value(fields[i], assignments[i].value);
        values.insert(values.end(), value.begin(), value.end());
    }
    return values;
}

VexoSessionInputs* open_inputs(VexoSession* session, const std::vector<std::string>& names,
                               int64_t limit) {
    std::vector<const char*> texts;
    for (const std::string& name : names) {
        texts.push_back(name.c_str());
    }
    VexoSessionInputs* inputs = nullptr;
    interruptible(session, [&] {
        return vexo_session_inputs_open(session, texts.data(), static_cast<uint32_t>(texts.size()),
                                        limit, &inputs);
    });
    return inputs;
}

// Sends them once more with each package that comes. Returns how often.
uint64_t hold(Context& context, Session session, VexoSessionInputs* inputs, const Bytes& values,
              const Arguments& arguments, const std::vector<std::string>& names) {
    using std::chrono::steady_clock;
    const TimePoint end = steady_clock::now() +
                          std::chrono::nanoseconds(static_cast<int64_t>(arguments.hold_s * 1e9));
    LiveSource source(context, std::move(session), names);
    uint64_t packages = 0;
    while (source.next(end)) {
        checked(vexo_session_inputs_write(inputs, values.data(), values.size()));
        ++packages;
        context.output.progress(counted(packages, "package") + " sent");
    }
    return packages;
}

Json document_of(const std::vector<VexoSessionVariable>& fields, const Bytes& values,
                 uint64_t packages) {
    Json written = Json::object();
    for (const VexoSessionVariable& field : fields) {
        written[field.name] = json_of(field, values.data());
    }
    return {{"status", 0}, {"packages", packages}, {"values", written}};
}

Exit run(const Arguments& arguments, Context& context) {
    const std::vector<Assignment> assignments = parse(arguments.assignments);
    const std::vector<std::string> names = names_of(assignments);
    Session session = open_session(context);
    const std::vector<VexoSessionVariable> fields = fields_of(session.get(), names);
    const Bytes values = packed(fields, assignments);
    VexoSessionInputs* inputs = open_inputs(session.get(), names, limit_us(context));
    checked(vexo_session_inputs_write(inputs, values.data(), values.size()));
    uint64_t packages = 1;
    if (arguments.hold_s > 0) {
        packages += hold(context, std::move(session), inputs, values, arguments, names);
    }
    if (context.output.json()) {
        context.output.document(document_of(fields, values, packages));
    }
    context.output.note(counted(packages, "package") +
                        " sent, which controllers do not acknowledge");
    return Exit::done;
}

}  // namespace

void add_write(Command& app, Context& context) {
    Command* command = app.add_subcommand("write", "Send values for inputs, in one package");
    const auto arguments = std::make_shared<Arguments>();
    command->add_option("NAME=VALUE", arguments->assignments, "an array as 1,2,3")->required();
    command->add_option("--hold", arguments->hold_s, "repeat it for so long at the stream's rate")
        ->type_name("S")
        ->positive();
    command->callback([&context, arguments] {
        context.run = [&, arguments] { return run(*arguments, context); };
    });
}

}  // namespace tool
