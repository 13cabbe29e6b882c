// `vexo latency`: how punctually packages come and are read, and why not. Nothing moves.
#include <atomic>
#include <thread>

#include "tools/vexo/interrupt.h"
#include "tools/vexo/measurement.h"

namespace tool {
namespace {

struct Arguments {
    double seconds = 10;
    double limit_us = 0;  // 0: half a period
    std::string picture;
};

// Asks the controller ten times a second, beside the stream.
class Asker {
public:
    Asker(VexoSession* session, Measurement& measurement)
        : measurement_(measurement), thread_([this, session] { ask(session); }) {}
    ~Asker() {
        ended_ = true;
        thread_.join();
        for (const double round_trip : round_trips_) {
            measurement_.add_round_trip(round_trip);
        }
    }
    Asker(const Asker&) = delete;
    Asker& operator=(const Asker&) = delete;

private:
    void ask(VexoSession* session) {
        constexpr int64_t kLimitUs = 200'000;
        while (!ended_ && !interrupted()) {
            int64_t round_trip_ns = 0;
            if (vexo_session_ping(session, kLimitUs, &round_trip_ns) == VEXO_SESSION_OK) {
                round_trips_.push_back(static_cast<double>(round_trip_ns) / 1e3);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    }

    Measurement& measurement_;
    Series round_trips_;
    std::atomic<bool> ended_ = false;
    std::thread thread_;
};

// Any variable will do.
std::string first_output(VexoSession* session) {
    auto entry = sized<VexoSessionVariable>();
    checked(vexo_session_entry(session, VEXO_SESSION_OUTPUT, 0, &entry));
    return entry.name;
}

Exit run(const Arguments& arguments, Context& context) {
    if (!arguments.picture.empty()) {
        require_writable(arguments.picture);
    }
    run_as_caller();
    Session session = open_session(context);
    const std::string name = first_output(session.get());
    LiveSource source(context, std::move(session), {name}, LiveSource::Purpose::measure);
    const TimePoint end = std::chrono::steady_clock::now() +
                          std::chrono::nanoseconds(static_cast<int64_t>(arguments.seconds * 1e9));
    Measurement measurement;
    {
        const Asker asker(source.session(), measurement);
        while (const std::optional<Row> row = source.next(end)) {
            measurement.add(*row);
            context.output.progress(measurement.progress());
        }
    }
    measurement.judge(source.session(), arguments.limit_us);
    if (!arguments.picture.empty()) {
        measurement.draw(arguments.picture);
    }
    return measurement.report(context.output);
}

}  // namespace

void add_latency(Command& app, Context& context) {
    Command* command =
        app.add_subcommand("latency", "Measure how punctual packages are; nothing moves");
    const auto arguments = std::make_shared<Arguments>();
    command->add_option("-D,--duration", arguments->seconds, "measure for so many seconds")
        ->type_name("S")
        ->between(0.001, 3600.0)
        ->capture_default_str();
    command
        ->add_option("--limit", arguments->limit_us,
                     "how late 99.9 % of the packages may be (default: half a period)")
        ->type_name("US")
        ->positive();
    command
        ->add_option("--hist", arguments->picture,
                     "draw the distributions, with percentiles on a "
                     "log scale")
        ->type_name("FILE.svg");
    command->callback([&context, arguments] {
        context.run = [&, arguments] { return run(*arguments, context); };
    });
}

}  // namespace tool
