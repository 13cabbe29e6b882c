#include "tools/vexo/output.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>

namespace tool {
namespace {

constexpr auto kProgressPeriod = std::chrono::milliseconds(100);
constexpr std::string_view kClearLine = "\r\x1b[K";

bool capable_terminal(int descriptor) {
    const char* kind = std::getenv("TERM");
    return isatty(descriptor) != 0 && !(kind != nullptr && std::strcmp(kind, "dumb") == 0);
}

bool colored(const Options& options, int descriptor) {
    if (options.color == "auto") {
        return capable_terminal(descriptor) && std::getenv("NO_COLOR") == nullptr;
    }
    return options.color == "always";
}

const char* escape(Paint paint) {
    switch (paint) {
        case Paint::good:
            return "\x1b[32m";
        case Paint::bad:
            return "\x1b[31m";
        case Paint::doubtful:
            return "\x1b[33m";
        case Paint::faint:
            return "\x1b[2m";
        case Paint::strong:
            return "\x1b[1m";
    }
    return "";
}

std::string paint_if(bool wanted, Paint paint, std::string_view text) {
    return wanted ? escape(paint) + std::string(text) + "\x1b[0m" : std::string(text);
}

// `errno` is that of the write.
void throw_if_unwritten() {
    if (!std::cout) {
        throw Failure(Exit::failed, "output",
                      std::string("standard output cannot be written: ") + std::strerror(errno),
                      "free space where it leads to, or send it elsewhere");
    }
}

// Names come from controllers and need not be UTF-8.
std::string dump(const Json& json, int indent) {
    return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

Output::Output(const Options& options) : options_(options) {
    std::ios::sync_with_stdio(false);  // keeps the reason of a failed write
}

void Output::text(std::string_view text) {
    clear_progress();
    errno = 0;
    std::cout << text;
    throw_if_unwritten();
}

void Output::document(const Json& document) {
    text(dump(document, 2) + '\n');
}

void Output::object(const Json& object) {
    line(dump(object, -1));
}

void Output::line(std::string_view text) {
    this->text(std::string(text) + '\n');
    finish();
}

void Output::note(std::string_view text) {
    if (!options_.quiet) {
        clear_progress();
        std::cerr << text << '\n';
    }
}

void Output::detail(std::string_view text) {
    if (options_.verbose) {
        note(text);
    }
}

void Output::progress(std::string_view text) {
    const auto now = std::chrono::steady_clock::now();
    if (options_.quiet || !capable_terminal(STDERR_FILENO) ||
        now - progress_time_ < kProgressPeriod) {
        return;
    }
    std::cerr << kClearLine << text << std::flush;
    progress_time_ = now;
    progress_shown_ = true;
}

void Output::clear_progress() {
    if (std::exchange(progress_shown_, false)) {
        std::cerr << kClearLine << std::flush;
    }
}

void Output::complaint(std::string_view cause, std::string_view remedy) {
    clear_progress();
    std::cout.flush();
    const bool color = colored(options_, STDERR_FILENO);
    std::cerr << paint_if(color, Paint::bad, "vexo: ") << cause << '\n';
    if (!remedy.empty()) {
        std::cerr << paint_if(color, Paint::faint, "remedy: ") << remedy << '\n';
    }
}

void Output::failure(const Failure& failure) {
    complaint(failure.cause, failure.remedy);
    if (json()) {
        Json error = Json::object();
        if (failure.controller_status != 0) {
            error["status"] = failure.controller_status;
        }
        error["error"] = {
            {"code", failure.code}, {"cause", failure.cause}, {"remedy", failure.remedy}};
        std::cout << dump(error, 2) << std::endl;
    }
}

void Output::finish() {
    clear_progress();
    errno = 0;
    std::cout.flush();
    throw_if_unwritten();
}

std::string Output::painted(Paint paint, std::string_view text) const {
    return paint_if(colored(options_, STDOUT_FILENO), paint, text);
}

}  // namespace tool
