// `vexo doctor`: is this host fit for 1 kHz, and if not, why.
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

#include "tools/vexo/commands.h"
#include "tools/vexo/doctor/facts_json.h"
#include "tools/vexo/doctor/gather.h"
#include "tools/vexo/doctor/report.h"
#include "tools/vexo/doctor/run.h"
#include "tools/vexo/interrupt.h"

namespace tool {
namespace {

using doctor::Facts;
using doctor::Purpose;
using doctor::Tree;

struct Arguments {
    std::string path;
    std::string interface;
    std::string save;
    std::string from;
    double seconds = 10;
    bool fix_script = false;
};

void describe(Command& command, Arguments& arguments) {
    command.add_option("--for", arguments.path, "the path that the application takes")
        ->type_name("PATH")
        ->one_of({"raw", "tcp"});
    command
        .add_option("--interface", arguments.interface,
                    "the port to the controller (default: that of --raw, or of the route)")
        ->type_name("IF");
    Option* save =
        command.add_option("--save", arguments.save, "store the facts as well")->type_name("FILE");
    Option* duration =
        command.add_option("-D,--duration", arguments.seconds, "length of the run; 0: none")
            ->type_name("S")
            ->between(0.0, 3600.0)
            ->capture_default_str();
    command.add_option("--from", arguments.from, "judge stored facts instead of this host")
        ->type_name("FILE")
        ->excludes(save)
        ->excludes(duration);
    command.add_flag("--fix-script", arguments.fix_script,
                     "print the remedies' commands as a script; nothing of it is run");
}

std::string port_of_route(const std::string& controller) {
    const doctor::Fact<doctor::Route> route = doctor::route_to(controller);
    return route.known() ? route->interface : "";
}

// A controller that nobody named is judged only if it is there.
Purpose purpose_of(const Arguments& arguments, const Options& options, bool host_named) {
    Purpose purpose;
    purpose.path = !arguments.path.empty() ? arguments.path : options.raw.empty() ? "tcp" : "raw";
    if (host_named || doctor::in_use(Tree(), options.host, 2295) ||
        doctor::ask_port(options.host, 2295, options.timeout_s) == "open") {
        purpose.controller = options.host;
    }
    purpose.mode = static_cast<uint32_t>(options.mode);
    purpose.interface = !arguments.interface.empty() ? arguments.interface : options.raw;
    if (purpose.interface.empty() && !purpose.controller.empty()) {
        purpose.interface = port_of_route(purpose.controller);
    }
    return purpose;
}

bool wait_with_progress(double seconds, Output& output) {
    constexpr double kStep = 0.1;
    for (double left = seconds; left > 0; left -= kStep) {
        char text[64];
        std::snprintf(text, sizeof text, "watching this host: %.0f s left", left);
        output.progress(text);
        if (!sleep_unless_interrupted(
                std::chrono::nanoseconds(static_cast<int64_t>(std::min(left, kStep) * 1e9)))) {
            return false;
        }
    }
    return true;
}

Facts examine(const Purpose& purpose, const Arguments& arguments, Context& context) {
    const Tree tree;
    Facts facts = doctor::gather(tree, purpose, context.options.timeout_s);
    if (arguments.seconds > 0) {
        facts.run = doctor::make_run(
            tree, facts, arguments.seconds, context.options.timeout_s,
            [&](double seconds) { return wait_with_progress(seconds, context.output); });
    }
    return facts;
}

Failure bad_file(const std::string& path, int cause) {
    return Failure(Exit::failed, "bad_file", path + ": " + std::strerror(cause),
                   "see whether the path is right and may be used");
}

Facts load(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        throw bad_file(path, errno);
    }
    try {
        // What is no document at all is no document of facts either.
        return doctor::from_document(nlohmann::json::parse(file, nullptr, false));
    } catch (const std::ios_base::failure&) {
        throw bad_file(path, EISDIR);  // it opens, and cannot be read
    }
}

void save(const Facts& facts, const std::string& path) {
    std::ofstream file(path);
    file << doctor::to_document(facts).dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
    if (!file.flush()) {
        throw bad_file(path, errno);
    }
}

Exit run(const Arguments& arguments, bool host_named, Context& context) {
    const Facts facts =
        !arguments.from.empty()
            ? load(arguments.from)
            : examine(purpose_of(arguments, context.options, host_named), arguments, context);
    if (!arguments.save.empty()) {
        save(facts, arguments.save);
    }
    const std::vector<doctor::Result> results = doctor::judge(facts);
    const doctor::Verdict verdict = doctor::decide(results);
    if (context.options.json) {
        Json document = document_of(results, verdict);
        if (arguments.fix_script) {
            document["fix_script"] = fix_script(verdict);
        }
        context.output.document(document);
    } else if (arguments.fix_script) {
        context.output.text(fix_script(verdict));
    } else {
        print(results, verdict, facts.run.seconds, context.options.verbose, context.output);
    }
    return verdict.pass ? Exit::done : Exit::incomplete;
}

}  // namespace

void add_doctor(Command& app, Context& context) {
    Command* command =
        app.add_subcommand("doctor", "Say whether this host is fit for 1 kHz, and if not, why");
    const auto arguments = std::make_shared<Arguments>();
    describe(*command, *arguments);
    command->callback([&app, &context, arguments] {
        context.run = [&app, &context, arguments] {
            return run(*arguments, app.has("--host"), context);
        };
    });
}

}  // namespace tool
