// The options that every command of the tool knows.
#ifndef TOOLS_VEXO_OPTIONS_H
#define TOOLS_VEXO_OPTIONS_H

#include <string>
#include <vector>

#include "tools/vexo/command_line.h"

namespace tool {

struct Options {
    std::string host = "127.0.0.1";
    std::string raw;        // interface of the fast path; empty: TCP
    std::string attach;     // URL of a running `vexo serve`; empty: a session of our own
    std::string capture;    // interface or pcap file to listen to; empty: a session of our own
    std::string catalogue;  // file with what a captured controller publishes
    std::vector<std::string> recipe;  // what the packages of a captured stream hold
    int mode = 2;
    double timeout_s = 5;
    bool json = false;
    bool quiet = false;
    bool verbose = false;
    std::string color = "auto";

    const Option* host_option = nullptr;
    // Whether the user has named a controller.
    bool host_named() const { return host_option != nullptr && host_option->given(); }
};

// They are taken before and after the command's name.
void add_options(Command& app, Options& options);

}  // namespace tool

#endif
