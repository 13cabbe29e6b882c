#include "tools/vexo/options.h"

namespace tool {
namespace {

void add_sources(Command& app, Options& options) {
    options.host_option =
        app.add_option("-H,--host", options.host, "IPv4 address of the controller")
            ->envname("VEXO_HOST")
            ->type_name("IP")
            ->ipv4()
            ->capture_default_str();
    Option* raw = app.add_option("--raw", options.raw,
                                 "exchange cyclic data in raw Ethernet frames over this interface")
                      ->type_name("IF");
    Option* attach =
        app.add_option("--attach", options.attach, "take values from a running `vexo serve`")
            ->type_name("URL");
    app.add_option("--capture", options.capture,
                   "listen on an interface, or read a pcap file, and send nothing")
        ->type_name("IF|FILE")
        ->excludes(raw)
        ->excludes(attach);
    attach->excludes(raw);
}

}  // namespace

void add_options(Command& app, Options& options) {
    add_sources(app, options);
    app.add_option("--mode", options.mode, "protocol mode to negotiate over TCP")
        ->type_name("N")
        ->one_of({"1", "2"})
        ->capture_default_str();
    app.add_option("--timeout", options.timeout_s, "how long to wait for the controller")
        ->type_name("S")
        ->between(0.001, 86400.0)
        ->capture_default_str();
    app.add_flag("--json", options.json, "print JSON: a document, or an object a line for streams");
    Option* quiet =
        app.add_flag("-q,--quiet", options.quiet, "no notes and no progress on standard error");
    app.add_flag("-v,--verbose", options.verbose, "say more on standard error")->excludes(quiet);
    app.add_option("--color", options.color, "colour: where the output is a terminal, or as told")
        ->type_name("WHEN")
        ->one_of({"auto", "always", "never"})
        ->capture_default_str();
}

}  // namespace tool
