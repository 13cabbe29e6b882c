#include "tools/vexo/doctor/tree.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <sstream>

namespace doctor {
namespace {

constexpr int kMostProcessors = 8192;

Fact<std::string> not_read(const std::string& path, int cause) {
    const std::string reason = path + ": " + std::strerror(cause);
    return cause == ENOENT || cause == ENODEV ? Fact<std::string>::absent(reason)
                                              : Fact<std::string>::unknown(reason);
}

std::string without_end(std::string text) {
    const size_t end = text.find_last_not_of(" \t\n");
    text.resize(end == std::string::npos ? 0 : end + 1);
    return text;
}

void add_range(const std::string& range, Processors& processors) {
    int first = 0;
    const char* const end = range.data() + range.size();
    const auto [after, error] = std::from_chars(range.data(), end, first);
    if (error != std::errc() || first < 0) {
        return;
    }
    int last = first;
    if (after != end && *after == '-') {
        std::from_chars(after + 1, end, last);
    }
    for (int i = first; i <= std::min(last, kMostProcessors); ++i) {
        processors.push_back(i);
    }
}

}  // namespace

Fact<std::string> Tree::text(const std::string& path) const {
    const int file = open((root_ + path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0) {
        return not_read(path, errno);
    }
    std::string text;
    char buffer[4096];
    ssize_t count = 0;
    while ((count = read(file, buffer, sizeof buffer)) > 0) {
        text.append(buffer, static_cast<size_t>(count));
    }
    const int cause = errno;
    close(file);
    return count < 0 ? not_read(path, cause) : Fact<std::string>(without_end(text));
}

Fact<int64_t> Tree::number(const std::string& path) const {
    const Fact<std::string> content = text(path);
    if (!content.known()) {
        return content.then([](const std::string&) { return int64_t{0}; });
    }
    int64_t value = 0;
    const char* const end = content->data() + content->size();
    if (std::from_chars(content->data(), end, value).ptr != end || content->empty()) {
        return Fact<int64_t>::unknown(path + ": no number");
    }
    return value;
}

Fact<Processors> Tree::processors(const std::string& path) const {
    return text(path).then(parse_processors);
}

std::vector<std::string> Tree::names(const std::string& path) const {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(root_ + path, error)) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool Tree::exists(const std::string& path) const {
    return access((root_ + path).c_str(), F_OK) == 0;
}

std::string Tree::real_path(const std::string& path) const {
    std::error_code error;
    return std::filesystem::canonical(root_ + path, error);
}

Processors parse_processors(const std::string& list) {
    Processors processors;
    std::istringstream ranges(list);
    for (std::string range; std::getline(ranges, range, ',');) {
        add_range(range, processors);
    }
    return processors;
}

std::string format_processors(const Processors& processors) {
    std::string text;
    for (size_t i = 0; i < processors.size(); ++i) {
        const size_t first = i;
        while (i + 1 < processors.size() && processors[i + 1] == processors[i] + 1) {
            ++i;
        }
        text += (text.empty() ? "" : ",") + std::to_string(processors[first]);
        if (i > first) {
            text += "-" + std::to_string(processors[i]);
        }
    }
    return text;
}

std::vector<std::string> split_lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> split_words(const std::string& text) {
    std::vector<std::string> words;
    std::istringstream stream(text);
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    return words;
}

}  // namespace doctor
