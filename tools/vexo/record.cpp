// `vexo record`: what the controller streams, in files that are complete at all times.
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <ctime>
#include <set>

#include "tools/vexo/catalogue.h"
#include "tools/vexo/interrupt.h"
#include "tools/vexo/record/recorder.h"

namespace tool {
namespace {

constexpr auto kLook = std::chrono::milliseconds(100);
constexpr double kRingS = 4;                // beside what a black box keeps
constexpr int64_t kSlowNs = 1'000'000'000;  // a write that takes longer is told of
constexpr double kSecond = 1e9;

struct Arguments {
    std::vector<std::string> names;
    bool all = false;
    std::string file;
    double duration_s = 0;  // 0: until it is interrupted
    double split_s = 1800;
    double pre_s = 0;
    std::string on;
    std::string counter = "package_counter";
    std::string time = "controller_time";
};

std::string default_file() {
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    char name[64];
    std::strftime(name, sizeof name, "vexo-%Y%m%d-%H%M%S.mcap", &local);
    return name;
}

void check(const Arguments& arguments) {
    if (arguments.names.empty() != arguments.all) {
        throw Failure(Exit::usage, "usage", "Say what to record: names of variables, or --all",
                      "vexo list outputs shows what there is");
    }
    if (access(arguments.file.c_str(), F_OK) == 0) {
        throw Failure(Exit::failed, "file", arguments.file + " exists",
                      "name another file with -o, or move that one away");
    }
}

// What is named, each once, and what the condition looks at besides.
std::vector<std::string> names_of(const Arguments& arguments,
                                  const std::optional<Condition>& condition, VexoSession* session) {
    std::vector<std::string> names = arguments.names;
    if (arguments.all) {
        for (const VexoSessionVariable& entry : entries_of(session, VEXO_SESSION_OUTPUT)) {
            if (entry.bytes > 0) {  // of a type that is known
                names.emplace_back(entry.name);
            }
        }
    }
    if (condition) {
        const std::vector<std::string> more = condition->names();
        names.insert(names.end(), more.begin(), more.end());
    }
    std::set<std::string> seen;
    std::erase_if(names, [&](const std::string& name) { return !seen.insert(name).second; });
    return names;
}

// Empty when it is not among them.
std::string if_recorded(const std::string& name, const std::vector<std::string>& names) {
    return std::find(names.begin(), names.end(), name) != names.end() ? name : "";
}

VexoSessionStream* open_stream(VexoSession* session, const std::vector<std::string>& names,
                               const Arguments& arguments, int64_t limit) {
    std::vector<const char*> pointers;
    for (const std::string& name : names) {
        pointers.push_back(name.c_str());
    }
    const std::string counter = if_recorded(arguments.counter, names);
    const std::string time = if_recorded(arguments.time, names);
    auto options = sized<VexoSessionStreamOptions>();
    options.ring_s = arguments.pre_s + kRingS;
    options.counter_variable = counter.empty() ? nullptr : counter.c_str();
    options.time_variable = time.empty() ? nullptr : time.c_str();
    VexoSessionStream* stream = nullptr;
    checked(vexo_session_stream_open(session, pointers.data(),
                                     static_cast<uint32_t>(pointers.size()), &options, limit,
                                     &stream));
    return stream;
}

mcap::Recipe recipe_of(VexoSessionStream* stream) {
    auto layout = sized<VexoSessionLayout>();
    checked(vexo_session_stream_layout(stream, &layout));
    mcap::Recipe recipe;
    for (uint32_t i = 0; i < layout.fields; ++i) {
        auto field = sized<VexoSessionVariable>();
        checked(vexo_session_stream_field(stream, i, &field));
        recipe.add(field.name, field.type);
    }
    return recipe;
}

mcap::Texts host_facts(VexoSession* session) {
    utsname system{};
    uname(&system);
    const VexoSessionStatus status = status_of(session);
    return {{"host", system.nodename},
            {"kernel", std::string(system.release) + ' ' + system.version},
            {"library", vexo_session_version()},
            {"controller", status.address},
            {"model", std::to_string(status.model)},
            {"firmware", status.firmware},
            {"hardware", status.hardware}};
}

mcap::Contents contents_of(VexoSession* session, const mcap::Recipe& recipe) {
    const std::string topic = std::string("/") + status_of(session).address;
    const std::string catalogue =
        catalogue_of(all_entries(session)).dump(2, ' ', false, Json::error_handler_t::replace);
    return {{mcap::channel_of(recipe, topic)},
            {{"catalogue.json", "application/json", catalogue}},
            {{"vexo", host_facts(session)}}};
}

// ---- While it runs -----------------------------------------------------------------------------

class Watch {
public:
    Watch(const Recorder& recorder, const Arguments& arguments, Context& context,
          VexoSession* session)
        : recorder_(recorder), arguments_(arguments), output_(context.output), session_(session) {}

    // Until the time is over, the stream has ended for good, or an interrupt.
    void wait() {
        while (!over() && sleep_unless_interrupted(kLook)) {
            tell_trouble();
            show_progress();
        }
    }

    double seconds() const {
        const int64_t begin = arguments_.on.empty() ? begin_ns_ : progress().triggered.load();
        return begin == 0 ? 0 : static_cast<double>(monotonic_now_ns() - begin) / kSecond;
    }

    void tell_trouble() {
        const int trouble = progress().trouble;
        if (trouble != told_) {
            output_.note(trouble != 0 ? arguments_.file + ": " + std::strerror(trouble) +
                                            "; packages are kept as long as there is room for them"
                                      : arguments_.file + ": can be written again");
            told_ = trouble;
        }
        if (progress().removed > removed_told_) {
            removed_told_ = progress().removed;
            output_.note(arguments_.file + " was removed: what it held is lost, and a new file " +
                         "is begun");
        }
        const int64_t since = progress().writing_since;
        const bool slow = since != 0 && monotonic_now_ns() - since > kSlowNs;
        if (slow && !slow_told_) {
            output_.note(arguments_.file + ": a write takes longer than a second; packages are " +
                         "kept as long as there is room for them");
        }
        slow_told_ = slow;
    }

private:
    const Progress& progress() const { return recorder_.progress(); }

    bool over() const {
        return progress().stream_ended ||
               (arguments_.duration_s > 0 && seconds() >= arguments_.duration_s);
    }

    void show_progress() {
        auto statistics = sized<VexoSessionStatistics>();
        vexo_session_statistics(session_, &statistics);
        uint64_t late = 0;
        for (const uint64_t count : statistics.late) {
            late += count;
        }
        const double rate =
            statistics.period_ns == 0 ? 0 : kSecond / static_cast<double>(statistics.period_ns);
        char line[200];
        std::snprintf(line, sizeof line, "%s %.0f s  %.0f/s  lost %llu  late %llu  %.1f MB",
                      !arguments_.on.empty() && progress().triggered == 0 ? "armed" : "recording",
                      seconds(), rate, static_cast<unsigned long long>(progress().lost.load()),
                      static_cast<unsigned long long>(late),
                      static_cast<double>(progress().bytes.load()) / 1e6);
        output_.progress(line);
    }

    const Recorder& recorder_;
    const Arguments& arguments_;
    Output& output_;
    VexoSession* const session_;
    const int64_t begin_ns_ = monotonic_now_ns();
    int told_ = 0;
    uint64_t removed_told_ = 0;
    bool slow_told_ = false;
};

Exit summarise(const Progress& progress, const Arguments& arguments, double seconds, uint64_t cuts,
               Output& output) {
    const bool written = progress.files > 0;
    if (output.json()) {
        output.document({{"file", written ? Json(arguments.file) : Json()},
                         {"packages", progress.packages.load()},
                         {"lost", progress.lost.load()},
                         {"cuts", cuts},
                         {"seconds", std::round(seconds * 1e3) / 1e3},
                         {"files", progress.files.load()},
                         {"bytes", progress.bytes.load()}});
    } else if (written) {
        char line[200];
        std::snprintf(line, sizeof line, ": %llu packages in %.1f s, %llu lost, %llu cuts, %.1f MB",
                      static_cast<unsigned long long>(progress.packages.load()), seconds,
                      static_cast<unsigned long long>(progress.lost.load()),
                      static_cast<unsigned long long>(cuts),
                      static_cast<double>(progress.bytes.load()) / 1e6);
        output.note(arguments.file + line);
    } else if (progress.lost == 0) {
        output.note("--on did not become true: nothing was recorded");
    }
    const bool whole = progress.lost == 0 && cuts == 0 && !progress.stream_ended &&
                       progress.trouble == 0 && progress.removed == 0;
    return whole ? Exit::done : Exit::incomplete;
}

Exit run(Arguments arguments, Context& context) {
    arguments.file = arguments.file.empty() ? default_file() : arguments.file;
    check(arguments);
    std::optional<Condition> condition;
    if (!arguments.on.empty()) {
        condition.emplace(arguments.on);
    }
    const Session session = open_session(context);
    const std::vector<std::string> names = names_of(arguments, condition, session.get());
    VexoSessionStream* stream = open_stream(session.get(), names, arguments, limit_us(context));
    const mcap::Recipe recipe = recipe_of(stream);
    Recorder recorder(
        session.get(), stream,
        {arguments.file, arguments.split_s, arguments.pre_s, if_recorded(arguments.time, names),
         recipe, contents_of(session.get(), recipe), std::move(condition)});
    Watch watch(recorder, arguments, context, session.get());
    watch.wait();
    const double seconds = watch.seconds();
    recorder.stop();
    watch.tell_trouble();
    auto statistics = sized<VexoSessionStatistics>();
    vexo_session_statistics(session.get(), &statistics);
    return summarise(recorder.progress(), arguments, seconds, statistics.cuts, context.output);
}

void describe(Command& command, Arguments& arguments) {
    command.add_option("NAME", arguments.names, "of a variable");
    command.add_flag("-a,--all", arguments.all, "all outputs of the catalogue");
    command.add_option("-o,--output", arguments.file, "the file; default: named by the time")
        ->type_name("FILE");
    command
        .add_option("-D,--duration", arguments.duration_s,
                    "how long, with --on from then on; default: until Ctrl-C")
        ->type_name("S")
        ->between(0.001, 1e9);
    command.add_option("--split", arguments.split_s, "begin a new file so often")
        ->type_name("S")
        ->capture_default_str()
        ->between(0.001, 1e9);
    Option* on =
        command
            .add_option("--on", arguments.on,
                        "write nothing until this becomes true, for instance 'error_code != 0 "
                        "or changed(robot_mode)'")
            ->type_name("EXPR");
    command.add_option("--pre", arguments.pre_s, "with --on: and what came so long before")
        ->type_name("S")
        ->needs(on)
        ->between(0.0, 3600.0);
    command.add_option("--counter", arguments.counter, "the variable that counts packages by one")
        ->type_name("NAME")
        ->capture_default_str();
    command.add_option("--time", arguments.time, "the variable that is the controller's time in s")
        ->type_name("NAME")
        ->capture_default_str();
}

}  // namespace

void add_record(Command& app, Context& context) {
    Command* command =
        app.add_subcommand("record", "Record what the controller streams as an MCAP file");
    const auto arguments = std::make_shared<Arguments>();
    describe(*command, *arguments);
    command->callback([&context, arguments] {
        context.run = [&, arguments] { return run(*arguments, context); };
    });
}

}  // namespace tool
