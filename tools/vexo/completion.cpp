// `vexo completion bash`: a script made from the tables that CLI11 parses with.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>
#include <vector>

#include "tools/vexo/commands.h"

namespace tool {
namespace {

std::vector<const CLI::App*> commands_of(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App*) { return true; });
}

// "{a,b,c}" in an option's description of its type -> "a b c"; empty where any value goes.
std::string choices(const CLI::Option& option) {
    const std::string type = option.get_type_name();
    const size_t begin = type.find('{');
    const size_t end = type.find('}');
    if (begin == std::string::npos || end == std::string::npos) {
        return "";
    }
    std::string words = type.substr(begin + 1, end - begin - 1);
    std::replace(words.begin(), words.end(), ',', ' ');
    return words;
}

std::vector<std::string> names(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames()) {
        names.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        names.push_back("--" + name);
    }
    return names;
}

std::string joined(const std::vector<std::string>& words, const char* between) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : between) + word;
    }
    return text;
}

// Options and fixed words that may stand after a command.
std::string words_of(const CLI::App& command) {
    std::vector<std::string> words;
    for (const CLI::App* below : commands_of(command)) {
        words.push_back(below->get_name());
    }
    for (const CLI::Option* option : command.get_options()) {
        const std::vector<std::string> own = names(*option);
        words.insert(words.end(), own.begin(), own.end());
        if (const std::string fixed = choices(*option);
            option->get_positional() && !fixed.empty()) {
            words.push_back(fixed);
        }
    }
    return joined(words, " ");
}

// The cases of "COMMAND OPTION" that stand before the word to complete: fixed words, or any value,
// which is left to the shell's completion of file names.
void write_values(std::ostream& out, const CLI::App& command, const std::string& pattern) {
    for (const CLI::Option* option : command.get_options()) {
        if (option->get_items_expected_max() == 0) {
            continue;  // a flag
        }
        const std::string words = choices(*option);
        for (const std::string& name : names(*option)) {
            out << "    " << pattern << "' " << name << "') "
                << (words.empty() ? "return" : "words='" + words + "'") << " ;;\n";
        }
    }
}

void write_words(std::ostream& out, const CLI::App& app, const std::string& commands) {
    out << "    case $command in\n"
           "    '') words='"
        << commands << "' ;;\n";
    for (const CLI::App* command : commands_of(app)) {
        out << "    " << command->get_name() << ") words='" << words_of(*command) << "' ;;\n";
    }
    out << "    esac\n"
           "    words+='"
        << words_of(app).substr(commands.size()) << "'\n";
}

std::string bash_script(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* command : commands_of(app)) {
        names.push_back(command->get_name());
    }
    std::ostringstream out;
    out << "# bash completion for vexo\n"
           "_vexo() {\n"
           "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}\n"
           "    local command='' words='' i\n"
           "    for ((i = 1; i < COMP_CWORD; ++i)); do\n"
           "        case ${COMP_WORDS[i]} in\n"
           "        "
        << joined(names, " | ")
        << ") command=${COMP_WORDS[i]} && break ;;\n"
           "        esac\n"
           "    done\n";
    write_words(out, app, joined(names, " "));
    out << "    case \"$command $before\" in\n";
    for (const CLI::App* command : commands_of(app)) {
        write_values(out, *command, command->get_name());
    }
    write_values(out, app, "*");
    out << "    esac\n"
           "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$word\")\n"
           "}\n"
           "complete -o default -F _vexo vexo\n";
    return out.str();
}

}  // namespace

void add_completion(Command& app, Context& context) {
    Command* command = app.add_subcommand("completion",
                                          "Print a script that completes vexo's "
                                          "words");
    Command* bash = command->add_subcommand("bash", "For bash");
    command->require_subcommand();
    bash->callback([&] {
        context.run = [&] {
            context.output.text(bash_script(app.parser()));
            return Exit::done;
        };
    });
}

}  // namespace tool
