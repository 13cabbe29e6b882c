#include "tests/tools/tool.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>

#include "tests/support/process.h"

namespace test {
namespace {

std::vector<char*> pointers(std::vector<std::string>& words) {
    std::vector<char*> result;
    for (std::string& word : words) {
        result.push_back(word.data());
    }
    result.push_back(nullptr);
    return result;
}

std::vector<std::string> simulator_words(std::vector<std::string> options, int number) {
    options.insert(options.begin(), {VEXO_SIM, "-a", own_loopback(number)});
    return options;
}

}  // namespace

Outcome run_program(std::vector<std::string> words) {
    static std::atomic<int> runs;
    const std::string run = std::to_string(++runs);
    const std::string out = "out." + run;
    const std::string err = "err." + run;
    words.insert(words.begin(), "/usr/bin/env");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(),
                                     O_CREAT | O_WRONLY | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(),
                                     O_CREAT | O_WRONLY | O_TRUNC, 0600);
    pid_t child = -1;
    EXPECT_EQ(
        posix_spawn(&child, "/usr/bin/env", &actions, nullptr, pointers(words).data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read_file(out), read_file(err)};
}

Outcome vexo(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), VEXO_TOOL);
    return run_program(std::move(arguments));
}

SimulatedRobot::SimulatedRobot(std::vector<std::string> options, int number)
    : program_(simulator_words(std::move(options), number)) {
    EXPECT_TRUE(wait_until([&] { return program_.output().find("ready on") != std::string::npos; },
                           std::chrono::seconds(60)))
        << program_.output();
}

Outcome SimulatedRobot::vexo(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"--timeout", "60", "--host", own_loopback()});
    return test::vexo(std::move(arguments));
}

std::string shell(const std::string& script) {
    const Outcome run = run_program({"bash", "-c", script});
    EXPECT_EQ(run.status, 0) << script << '\n' << run.err;
    return run.out;
}

}  // namespace test
