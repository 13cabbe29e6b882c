// vexo-sim as a process.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

#include "tests/sim/peer.h"
#include "tests/support/process.h"

namespace {

using test::own_loopback;
using test::wait_until;

// vexo-sim with its output in a file.
class Program {
public:
    explicit Program(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), VEXO_SIM);
        std::vector<char*> argv;
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "output",
                                         O_CREAT | O_WRONLY | O_TRUNC, 0600);
        posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
        EXPECT_EQ(posix_spawn(&pid_, VEXO_SIM, &actions, nullptr, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Program() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    std::string output() const { return test::read_file("output"); }
    bool ready() const {
        return wait_until([this] { return output().find('\n') != std::string::npos; });
    }
    int end(int signal) {
        kill(pid_, signal);
        return status();
    }
    int status() {
        int status = -1;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t pid_ = -1;
};

}  // namespace

TEST(Program, ServesUntilItIsToldToEnd) {
    for (const int signal : {SIGTERM, SIGINT}) {
        Program program({"--address", own_loopback(7), "--count", "2", "--rate", "100",
                         "--digital-inputs", "0x5", "--error", "3", "--fault",
                         "type=v,status=9,times=always"});
        ASSERT_TRUE(program.ready());
        EXPECT_EQ(program.output(),
                  "vexo-sim: ready on " + own_loopback(7) + " " + own_loopback(8) + " at 100 Hz\n");
        for (const int number : {7, 8}) {
            test::Peer io(own_loopback(number), sim::Port::io);
            EXPECT_EQ(io.ask("03 00 76"), "07 00 76 09 00 00 00 ");
        }
        EXPECT_EQ(program.end(signal), 0);
        const std::string summary =
            ": 1 connections, 1 requests (1 refused), 0 set-points, 0 inputs, 0 packages sent, "
            "0 dropped, 0 frames rejected\n";
        EXPECT_NE(program.output().find("vexo-sim: " + own_loopback(7) + summary),
                  std::string::npos)
            << program.output();
        EXPECT_NE(program.output().find("vexo-sim: " + own_loopback(8) + summary),
                  std::string::npos);
    }
}

TEST(Program, SaysWhyItCannotServe) {
    sim::Options options;
    options.address = own_loopback();
    const sim::Simulator simulator(options);
    Program taken({"--address", own_loopback()});
    EXPECT_EQ(taken.status(), 1);
    EXPECT_EQ(taken.output(),
              "vexo-sim: cannot listen on " + own_loopback() + ":2295: Address already in use\n");
    Program fault({"--address", own_loopback(2), "--fault", "nonsense"});
    EXPECT_EQ(fault.status(), 1);
    EXPECT_EQ(fault.output(), "vexo-sim: fault: cannot make sense of \"nonsense\"\n");
    Program option({"--rate", "2000"});
    EXPECT_NE(option.status(), 0);
}

TEST(Program, PrintsACatalogueThatItCanRead) {
    Program print({"--print-catalogue"});
    ASSERT_EQ(print.status(), 0);
    const std::string text = print.output();
    EXPECT_EQ(text, sim::Catalogue::built_in().to_json());
    std::ofstream("catalogue.json") << text;
    Program serve({"--address", own_loopback(), "--catalogue", "catalogue.json"});
    ASSERT_TRUE(serve.ready());
    EXPECT_EQ(serve.end(SIGTERM), 0);
}
