#include "tests/support/program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>

#include "tests/support/process.h"

namespace test {

Program::Program(std::vector<std::string> arguments) {
    static std::atomic<int> programs;
    file_ = "output." + std::to_string(++programs);
    std::vector<char*> pointers;
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, file_.c_str(),
                                     O_CREAT | O_WRONLY | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    EXPECT_EQ(posix_spawn(&pid_, pointers[0], &actions, nullptr, pointers.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
}

Program::~Program() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

std::string Program::output() const {
    return read_file(file_);
}

bool Program::ready() const {
    return wait_until([this] { return output().find('\n') != std::string::npos; });
}

int Program::status(int signal) {
    kill(pid_, signal);
    int status = 0;
    EXPECT_EQ(waitpid(pid_, &status, 0), pid_);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace test
