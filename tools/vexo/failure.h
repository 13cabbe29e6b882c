// How a command ends: the exit statuses, and what it says when it did not do what it was asked.
#ifndef TOOLS_VEXO_FAILURE_H
#define TOOLS_VEXO_FAILURE_H

#include <exception>
#include <string>

namespace tool {

enum class Exit {
    done = 0,
    failed = 1,       // unknown name, bad file
    usage = 2,        // the command line makes no sense
    incomplete = 3,   // done, but something was lost or a check failed
    unreachable = 4,  // no controller there, or it did not answer in time
    refused = 5,      // the controller said no
};

// Thrown by a command that cannot do its work. The code is a word for programs, cause and remedy
// are a line each for people.
struct Failure : std::exception {
    Failure(Exit status, std::string code, std::string cause, std::string remedy);
    const char* what() const noexcept override { return cause.c_str(); }

    Exit status;
    std::string code;
    std::string cause;
    std::string remedy;
    int controller_status = 0;  // of a request that the controller refused
    int system = 0;             // errno, if the system refused
    bool from_session = false;  // its words are those of the session library
};

}  // namespace tool

#endif
