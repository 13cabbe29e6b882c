#include "tools/vexo/command_line.h"

#include <CLI/CLI.hpp>
#include <cstdint>

namespace tool {

Option* Option::type_name(const std::string& name) {
    parsed_.type_name(name);
    return this;
}

Option* Option::envname(const std::string& name) {
    parsed_.envname(name);
    return this;
}

Option* Option::required() {
    parsed_.required();
    return this;
}

Option* Option::capture_default_str() {
    parsed_.capture_default_str();
    return this;
}

Option* Option::excludes(Option* other) {
    parsed_.excludes(&other->parsed_);
    return this;
}

Option* Option::needs(Option* other) {
    parsed_.needs(&other->parsed_);
    return this;
}

Option* Option::one_of(const std::vector<std::string>& words) {
    parsed_.check(CLI::IsMember(words));
    return this;
}

Option* Option::positive() {
    parsed_.check([](const std::string& text) {
        double number = 0;
        const bool good = CLI::detail::lexical_cast(text, number) && number > 0;
        return good ? std::string() : text + " is not a number above 0";
    });
    return this;
}

Option* Option::between(double least, double most) {
    parsed_.check(CLI::Range(least, most).description(""));
    return this;
}

bool Option::given() const {
    return parsed_.count() > 0;
}

Option* Option::list() {
    parsed_.delimiter(',')->allow_extra_args(false);
    return this;
}

Option* Option::ipv4() {
    parsed_.check(CLI::Validator(CLI::ValidIPV4).description(""));
    return this;
}

Command* Command::add_subcommand(const std::string& name, const std::string& help) {
    return &commands_.emplace_back(*parser_.add_subcommand(name, help));
}

void Command::require_subcommand() {
    parser_.require_subcommand(1);
}

template <typename T>
Option* Command::add_option(const std::string& names, T& value, const std::string& help) {
    return keep(parser_.add_option(names, value, help));
}

template Option* Command::add_option(const std::string&, std::string&, const std::string&);
template Option* Command::add_option(const std::string&, std::vector<std::string>&,
                                     const std::string&);
template Option* Command::add_option(const std::string&, int&, const std::string&);
template Option* Command::add_option(const std::string&, uint64_t&, const std::string&);
template Option* Command::add_option(const std::string&, double&, const std::string&);

Option* Command::add_flag(const std::string& names, bool& value, const std::string& help) {
    return keep(parser_.add_flag(names, value, help));
}

void Command::callback(std::function<void()> named) {
    parser_.callback(std::move(named));
}

bool Command::has(const std::string& option) const {
    return parser_.count(option) > 0;
}

Option* Command::keep(CLI::Option* parsed) {
    return &options_.emplace_back(*parsed);
}

}  // namespace tool
