// What a command prints: data on standard output, everything else on standard error.
#ifndef TOOLS_VEXO_OUTPUT_H
#define TOOLS_VEXO_OUTPUT_H

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "tools/vexo/failure.h"
#include "tools/vexo/options.h"

namespace tool {

using Json = nlohmann::ordered_json;  // keys stay in the order in which they are given

enum class Paint { good, bad, doubtful, faint, strong };

class Output {
public:
    explicit Output(const Options& options);
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    bool json() const { return options_.json; }

    // Text for people, as it stands, with its line feeds. Like the others it throws a Failure when
    // standard output does not take it.
    void text(std::string_view text);
    // The one document of a command.
    void document(const Json& document);
    // One object of a stream, in a line that is written at once.
    void object(const Json& object);
    // One line of a stream's text, written at once.
    void line(std::string_view text);

    // A line on standard error, not with -q.
    void note(std::string_view text);
    // The same with -v only.
    void detail(std::string_view text);
    // Replaces the progress line. Shown on terminals only, ten times a second at most.
    void progress(std::string_view text);

    // What went wrong although the work was done: cause and remedy, a line each, on standard error.
    void complaint(std::string_view cause, std::string_view remedy);

    // The cause and the remedy on standard error, and with --json the document of an error.
    void failure(const Failure& failure);
    // Writes out what is buffered.
    void finish();

    // The text in colour for standard output, where colour is wanted there.
    std::string painted(Paint paint, std::string_view text) const;

private:
    void clear_progress();

    const Options& options_;
    bool progress_shown_ = false;
    std::chrono::steady_clock::time_point progress_time_{};
};

}  // namespace tool

#endif
