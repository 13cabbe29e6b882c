// vexo-sim: simulated controllers for trying out applications without a robot.
#include <arpa/inet.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>

#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <sstream>

#include "sim/console.h"
#include "sim/descriptor.h"
#include "sim/recording.h"

namespace {

struct Arguments {
    std::vector<std::string> addresses{"127.0.0.1"};
    unsigned count = 1;
    double rate = 1000;
    std::string interface;
    std::string catalogue;
    std::string replay;
    std::vector<std::string> faults;
    uint64_t digital_inputs = 0;
    uint32_t error = 0;
    bool commands = false;
    bool print_catalogue = false;
    bool print_faults = false;
};

void describe(CLI::App& app, Arguments& arguments) {
    app.add_option("-a,--address", arguments.addresses,
                   "IPv4 address to serve; repeat for more controllers")
        ->capture_default_str()
        ->check(CLI::ValidIPV4);
    app.add_option("-n,--count", arguments.count,
                   "controllers to run on consecutive addresses, from the last one given on")
        ->capture_default_str()
        ->check(CLI::Range(1, 250));
    app.add_option("-r,--rate", arguments.rate, "output packages per second, up to 1000")
        ->capture_default_str()
        ->check(CLI::Range(0.001, 1000.0));
    app.add_option("-i,--interface", arguments.interface,
                   "network interface on which clients may use raw frames; controllers behind the "
                   "first have the addresses 02:76:65:78:6f:NN on it");
    app.add_option("-c,--catalogue", arguments.catalogue,
                   "JSON file with the catalogue to publish (default: the built-in arm)")
        ->check(CLI::ExistingFile);
    app.add_option(
           "--replay", arguments.replay,
           "recording of vexo record: send its packages with their timing, again and again; "
           "its catalogue is published unless -c names another")
        ->check(CLI::ExistingFile);
    app.add_option("-f,--fault", arguments.faults,
                   "fault to inject into every controller, e.g. type=O,status=5 or "
                   "package,lost,every=100 or reboot=500,at=2000; repeat for more")
        ->allow_extra_args(false);
    app.add_flag(
        "-s,--stdin", arguments.commands,
        "take commands from standard input, a line each: reboot 500, package,lost,every=10, "
        "clear, status, help; each is answered by a line \"ok\" or \"error: ...\"");
    app.add_option("--digital-inputs", arguments.digital_inputs,
                   "bits of the digital inputs, e.g. 0x5");
    app.add_option("--error", arguments.error, "start with this error code set");
    app.add_flag("--print-catalogue", arguments.print_catalogue,
                 "print the catalogue as JSON and exit");
    app.add_flag("--print-faults", arguments.print_faults,
                 "print what a fault can be made of and exit");
    app.footer(
        "Each controller serves the ports 2295, 2297 and 2299 of its address. Once all are served, "
        "a line\nbeginning with \"vexo-sim: ready on\" is printed. SIGINT or SIGTERM ends the "
        "program with status 0.");
}

sim::Catalogue load_catalogue(const Arguments& arguments) {
    if (arguments.catalogue.empty()) {
        const std::string recorded =
            arguments.replay.empty() ? "" : sim::Recording(arguments.replay).catalogue();
        return recorded.empty() ? sim::Catalogue::built_in() : sim::Catalogue::from_json(recorded);
    }
    std::ifstream file(arguments.catalogue);
    std::ostringstream text;
    text << file.rdbuf();
    return sim::Catalogue::from_json(text.str());
}

std::string next_address(const std::string& address) {
    in_addr number{};
    inet_pton(AF_INET, address.c_str(), &number);
    number.s_addr = htonl(ntohl(number.s_addr) + 1);
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &number, text, sizeof text);
}

std::vector<std::string> all_addresses(const Arguments& arguments) {
    std::vector<std::string> addresses = arguments.addresses;
    for (unsigned i = 1; i < arguments.count; ++i) {
        addresses.push_back(next_address(addresses.back()));
    }
    return addresses;
}

using sim::Running;

// Controllers that share an interface need addresses of their own there.
sim::MacAddress station(size_t number) {
    return {0x02, 0x76, 0x65, 0x78, 0x6F, static_cast<uint8_t>(number)};
}

std::vector<Running> start(const Arguments& arguments, const sim::Catalogue& catalogue) {
    std::vector<Running> running;
    for (const std::string& address : all_addresses(arguments)) {
        sim::Options options;
        options.address = address;
        options.rate = arguments.rate;
        options.catalogue = catalogue;
        options.interface = arguments.interface;
        if (!arguments.replay.empty()) {
            options.replay = std::make_shared<sim::Recording>(arguments.replay);
        }
        if (!running.empty()) {
            options.mac = station(running.size());
        }
        options.history = 0;
        running.push_back({address, std::make_unique<sim::Simulator>(std::move(options))});
        sim::Simulator& simulator = *running.back().simulator;
        simulator.set_digital_inputs(arguments.digital_inputs);
        if (arguments.error != 0) {
            simulator.raise_error(arguments.error);
        }
        for (const std::string& fault : arguments.faults) {
            simulator.inject(sim::parse_fault(fault));
        }
    }
    return running;
}

// Reads what has come of standard input and carries its whole lines out. False: its end.
bool take_commands(const std::vector<Running>& running, std::string& received) {
    char chunk[4096];
    const ssize_t got = read(STDIN_FILENO, chunk, sizeof chunk);
    received.append(chunk, static_cast<size_t>(std::max<ssize_t>(got, 0)));
    size_t end = 0;
    while ((end = received.find('\n')) != std::string::npos) {
        std::cout << sim::execute(running, received.substr(0, end)) << std::flush;
        received.erase(0, end + 1);
    }
    return got > 0;
}

// Until one of the signals comes.
void attend(const std::vector<Running>& running, const sigset_t& ends, bool commands) {
    const sim::Descriptor signals(signalfd(-1, &ends, SFD_CLOEXEC));
    pollfd polled[] = {{signals.get(), POLLIN, 0}, {commands ? STDIN_FILENO : -1, POLLIN, 0}};
    std::string received;
    while (polled[0].revents == 0) {
        poll(polled, std::size(polled), -1);
        if (polled[1].revents != 0 && !take_commands(running, received)) {
            polled[1].fd = -1;
        }
    }
}

void run(const Arguments& arguments, const sim::Catalogue& catalogue) {
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);

    const std::vector<Running> running = start(arguments, catalogue);
    std::cout << "vexo-sim: ready on";
    for (const Running& one : running) {
        std::cout << ' ' << one.address;
    }
    std::cout << " at " << arguments.rate << " Hz" << std::endl;

    attend(running, ends, arguments.commands);
    for (const Running& one : running) {
        one.simulator->stop();
        std::cout << sim::summary(one);
    }
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Simulates robot controllers, each a six-axis arm on an address of its own.");
    Arguments arguments;
    describe(app, arguments);
    CLI11_PARSE(app, argc, argv);
    try {
        const sim::Catalogue catalogue = load_catalogue(arguments);
        if (arguments.print_catalogue) {
            std::cout << catalogue.to_json();
        } else if (arguments.print_faults) {
            std::cout << sim::fault_table();
        } else {
            run(arguments, catalogue);
        }
    } catch (const std::exception& error) {
        std::cerr << "vexo-sim: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
