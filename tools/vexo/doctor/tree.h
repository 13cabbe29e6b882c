// Reading /proc and /sys.
#ifndef TOOLS_VEXO_DOCTOR_TREE_H
#define TOOLS_VEXO_DOCTOR_TREE_H

#include <string>
#include <vector>

#include "tools/vexo/doctor/facts.h"

namespace doctor {

// The kernel's files below a root: "" is this host, and a folder with such files another one. A
// file that does not exist is an absent fact, one that cannot be read an unknown one.
class Tree {
public:
    explicit Tree(std::string root = "") : root_(std::move(root)) {}

    // What is in a file, without blanks at its end.
    Fact<std::string> text(const std::string& path) const;
    Fact<int64_t> number(const std::string& path) const;
    Fact<Processors> processors(const std::string& path) const;
    // The names in a folder, sorted; none when there is no such folder.
    std::vector<std::string> names(const std::string& path) const;
    bool exists(const std::string& path) const;
    // Where a path leads, all links followed; empty when it leads nowhere.
    std::string real_path(const std::string& path) const;
    // Whether this is the host that we run on, so that it can be asked otherwise, too.
    bool live() const { return root_.empty(); }

private:
    std::string root_;
};

// "0-3,8" -> 0 1 2 3 8. What is no such list gives an empty one.
Processors parse_processors(const std::string& list);
std::string format_processors(const Processors& processors);

std::vector<std::string> split_lines(const std::string& text);
std::vector<std::string> split_words(const std::string& text);

}  // namespace doctor

#endif
