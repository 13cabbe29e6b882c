// How a command tells of its options and arguments. CLI11 reads them; its header stays behind this
// one, since compiling it takes longer than compiling any command.
#ifndef TOOLS_VEXO_COMMAND_LINE_H
#define TOOLS_VEXO_COMMAND_LINE_H

#include <deque>
#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace tool {

// Each of the functions returns the option itself.
class Option {
public:
    explicit Option(CLI::Option& parsed) : parsed_(parsed) {}

    Option* type_name(const std::string& name);
    Option* envname(const std::string& name);
    Option* required();
    // Shows the value that the variable has now.
    Option* capture_default_str();
    Option* excludes(Option* other);
    Option* needs(Option* other);

    // Whether the line that was read, or the environment, has it.
    bool given() const;

    // What values are taken.
    Option* one_of(const std::vector<std::string>& words);
    Option* positive();
    Option* between(double least, double most);
    Option* ipv4();
    // Several, with commas between them.
    Option* list();

private:
    CLI::Option& parsed_;
};

class Command {
public:
    explicit Command(CLI::App& parser) : parser_(parser) {}

    Command* add_subcommand(const std::string& name, const std::string& help);
    void require_subcommand();
    // An option by its names, "-n,--lines", or an argument by a word without dashes. The types that
    // values can have are those that command_line.cpp lists.
    template <typename T>
    Option* add_option(const std::string& names, T& value, const std::string& help);
    Option* add_flag(const std::string& names, bool& value, const std::string& help);
    // Is called when the line was read and the command was the one named.
    void callback(std::function<void()> named);

    // Whether the line that was read has this option.
    bool has(const std::string& option) const;

    CLI::App& parser() { return parser_; }

private:
    Option* keep(CLI::Option* parsed);

    CLI::App& parser_;
    std::deque<Option> options_;
    std::deque<Command> commands_;
};

}  // namespace tool

#endif
