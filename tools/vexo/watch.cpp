// `vexo watch`: packages as they come.
#include <algorithm>
#include <cstring>

#include "tools/vexo/capture_reader.h"
#include "tools/vexo/csv.h"
#include "tools/vexo/rows.h"
#include "tools/vexo/times.h"

namespace tool {
namespace {

struct Arguments {
    std::vector<std::string> names;
    uint64_t lines = 0;  // 0: without end
    double seconds = 0;  // 0: without end
    double rate_hz = 0;  // 0: each package
    bool changes = false;
    bool csv = false;
    std::string time = "absolute";
};

// Chooses the packages that are shown.
class Choice {
public:
    Choice(const Arguments& arguments, const std::vector<VexoSessionVariable>& fields)
        : fields_(fields),
          period_ns_(arguments.rate_hz > 0 ? static_cast<int64_t>(1e9 / arguments.rate_hz) : 0),
          changes_(arguments.changes) {}

    bool takes(const VexoSessionPackage* package) {
        return in_time(package->arrival_ns) && (!changes_ || changed(package));
    }

private:
    // Keeps to the rate on average; after a gap it begins anew.
    bool in_time(int64_t arrival_ns) {
        if (arrival_ns < due_ns_) {
            return false;
        }
        due_ns_ = (arrival_ns - due_ns_ < period_ns_ ? due_ns_ : arrival_ns) + period_ns_;
        return true;
    }

    bool changed(const VexoSessionPackage* package) {
        std::vector<uint8_t> values;
        for (const VexoSessionVariable& field : fields_) {
            const auto* at = reinterpret_cast<const uint8_t*>(package) + field.offset;
            values.insert(values.end(), at, at + field.bytes);
        }
        const bool other = !std::exchange(begun_, true) || values != shown_;
        shown_ = std::move(values);
        return other;
    }

    const std::vector<VexoSessionVariable>& fields_;
    int64_t period_ns_;
    bool changes_;
    bool begun_ = false;
    int64_t due_ns_ = INT64_MIN / 2;
    std::vector<uint8_t> shown_;
};

// The time of a line: of the arrival, or since the line before, or since the first.
class Clock {
public:
    explicit Clock(const Arguments& arguments) : arguments_(arguments) {}

    std::string text(const VexoSessionPackage* package) {
        if (arguments_.time == "absolute") {
            return arguments_.csv ? decimal_seconds(package->arrival_realtime_ns)
                                  : rfc3339(package->arrival_realtime_ns);
        }
        if (from_ns_ == 0 || arguments_.time == "delta") {
            const int64_t before_ns = std::exchange(from_ns_, package->arrival_ns);
            return decimal_seconds(before_ns == 0 ? 0 : from_ns_ - before_ns);
        }
        return decimal_seconds(package->arrival_ns - from_ns_);
    }

private:
    const Arguments& arguments_;
    int64_t from_ns_ = 0;
};

// One line for each package that is shown.
class Printer {
public:
    Printer(const Arguments& arguments, const std::vector<VexoSessionVariable>& fields,
            Output& output)
        : csv_(arguments.csv), fields_(fields), output_(output), clock_(arguments), table_(fields) {
        if (csv_) {
            output_.line(table_.header());
        }
    }

    void print(const Row& row) {
        if (output_.json()) {
            output_.object(document_of(fields_, row));
        } else if (csv_) {
            output_.line(table_.line(clock_.text(row.package), row.package));
        } else {
            output_.line(text(row));
        }
    }

private:
    std::string text(const Row& row) {
        std::string line = output_.painted(Paint::faint, clock_.text(row.package));
        for (const VexoSessionVariable& field : fields_) {
            line += std::string("  ") + field.name + '=' + text_of(field, row.package);
        }
        if (row.lost > 0) {
            line += "  " + output_.painted(Paint::bad, std::to_string(row.lost) + " lost before");
        }
        return line;
    }

    bool csv_;
    const std::vector<VexoSessionVariable>& fields_;
    Output& output_;
    Clock clock_;
    CsvTable table_;
};

// What came in all, shown or not.
struct Tally {
    uint64_t packages = 0;
    uint64_t lost = 0;
    uint64_t late = 0;  // of these: not taken in time
    uint64_t cuts = 0;
    uint32_t connection = 0;

    void count(const Row& row) {
        cuts += packages > 0 && row.package->connection != connection ? 1 : 0;
        connection = row.package->connection;
        lost += row.lost;
        late += row.late;
        ++packages;
    }

    std::string text() const {
        return counted(packages, "package") + ", " + std::to_string(lost) + " lost, " +
               counted(cuts, "cut");
    }
};

Exit judge(const Tally& tally, Output& output) {
    output.note(tally.text());
    if (tally.late > 0) {
        output.complaint(counted(tally.late, "package") + " not taken in time: the output is slow",
                         "ask for fewer with -r, or send the output to a faster place");
    }
    if (tally.lost > tally.late) {
        output.complaint(counted(tally.lost - tally.late, "package") + " lost on the way",
                         "`vexo doctor` tells what this host drops; else see cable and controller");
    }
    if (tally.cuts > 0) {
        output.complaint(
            "the connection was cut " + counted(tally.cuts, "time"),
            "see that nobody else connects to the controller, and that it keeps running");
    }
    return tally.lost + tally.cuts == 0 ? Exit::done : Exit::incomplete;
}

TimePoint end_of(const Arguments& arguments) {
    const auto now = std::chrono::steady_clock::now();
    return arguments.seconds > 0
               ? now + std::chrono::nanoseconds(static_cast<int64_t>(arguments.seconds * 1e9))
               : TimePoint::max();
}

Exit run(const Arguments& arguments, Context& context) {
    if (arguments.csv && context.output.json()) {
        throw Failure(Exit::usage, "usage", "--csv excludes --json", "leave one of them out");
    }
    const std::unique_ptr<Source> source = open_source(context, arguments.names);
    Choice choice(arguments, source->fields());
    Printer printer(arguments, source->fields(), context.output);
    Tally tally;
    uint64_t lost = 0;  // since the last line
    uint64_t lines = 0;
    const TimePoint end = end_of(arguments);
    while (lines < arguments.lines || arguments.lines == 0) {
        std::optional<Row> row = source->next(end);
        if (!row) {
            break;
        }
        tally.count(*row);
        lost += row->lost;
        if (choice.takes(row->package)) {
            row->lost = std::exchange(lost, 0);
            printer.print(*row);
            ++lines;
        }
        context.output.progress(tally.text());
    }
    return judge(tally, context.output);
}

}  // namespace

void add_watch(Command& app, Context& context) {
    Command* command = app.add_subcommand("watch", "Show packages as they come, a line each");
    const auto arguments = std::make_shared<Arguments>();
    command->add_option("NAME", arguments->names, "of an output, or of an input")->required();
    add_capture_options(*command, context.options);
    command->add_option("-n,--lines", arguments->lines, "end after so many lines")
        ->type_name("N")
        ->positive();
    command->add_option("-D,--duration", arguments->seconds, "end after so many seconds")
        ->type_name("S")
        ->positive();
    command->add_option("-r,--rate", arguments->rate_hz, "show so many packages a second at most")
        ->type_name("HZ")
        ->positive();
    command->add_flag("--changes", arguments->changes, "only packages that differ from the last");
    command->add_flag("--csv", arguments->csv, "comma-separated values with a header");
    command
        ->add_option("-t,--time", arguments->time,
                     "of arrival, since the line before, or since the first; JSON has the first")
        ->type_name("KIND")
        ->one_of({"absolute", "delta", "zero"})
        ->capture_default_str();
    command->callback([&context, arguments] {
        context.run = [&, arguments] { return run(*arguments, context); };
    });
}

}  // namespace tool
