// What holds of every command: usage errors, help, the outputs, completion.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/tools/tool.h"

using nlohmann::json;
using test::Outcome;
using test::shell;
using test::vexo;

TEST(CommandLine, RefusesWhatMakesNoSense) {
    const std::vector<std::vector<std::string>> lines = {
        {},
        {"no-such-command"},
        {"--no-such-option", "completion", "bash"},
        {"completion"},
        {"completion", "bash", "more"},
        {"completion", "bash", "--mode", "3"},
        {"completion", "bash", "--host", "robot"},
        {"completion", "bash", "--timeout", "0"},
        {"completion", "bash", "--color", "pink"},
        {"completion", "bash", "-q", "-v"},
        {"completion", "bash", "--raw", "eth1", "--capture", "eth1"},
        {"completion", "bash", "--raw", "eth1", "--attach", "ws://127.0.0.1:8765"},
    };
    for (const std::vector<std::string>& line : lines) {
        const Outcome run = vexo(line);
        EXPECT_EQ(run.status, 2) << testing::PrintToString(line);
        EXPECT_EQ(run.out, "") << testing::PrintToString(line);
        EXPECT_EQ(run.err.find("vexo: "), 0u) << run.err;
        EXPECT_NE(run.err.find("\nremedy: "), std::string::npos) << run.err;
    }
    EXPECT_EQ(test::run_program({"VEXO_HOST=robot", VEXO_TOOL, "completion", "bash"}).status, 2);
}

TEST(CommandLine, PrintsAnErrorAsADocument) {
    const Outcome run = vexo({"--json", "no-such-command"});
    EXPECT_EQ(run.status, 2);
    const json error = json::parse(run.out).at("error");
    EXPECT_EQ(error.at("code"), "usage");
    EXPECT_EQ(error.at("cause"), "There is no command or option no-such-command");
    EXPECT_EQ(run.err, "vexo: " + error.at("cause").get<std::string>() +
                           "\nremedy: " + error.at("remedy").get<std::string>() + "\n");
}

TEST(CommandLine, HelpsOnStandardOutput) {
    for (const std::vector<std::string>& line :
         {std::vector<std::string>{"--help"}, {"completion", "--help"}}) {
        const Outcome run = vexo(line);
        EXPECT_EQ(run.status, 0);
        EXPECT_NE(run.out.find("--help"), std::string::npos);
        EXPECT_EQ(run.err, "");
    }
}

TEST(CommandLine, ColoursTerminalsOnlyUnlessToldOtherwise) {
    const auto colored = [](const std::string& options) {
        return shell("script -qec '" VEXO_TOOL " completion " + options + "' /dev/null || true")
                   .find("\x1b[31m") != std::string::npos;
    };
    EXPECT_TRUE(colored(""));
    EXPECT_FALSE(colored("--color never"));
    EXPECT_EQ(vexo({"completion"}).err.find('\x1b'), std::string::npos);
}

TEST(CommandLine, SaysWhenTheOutputIsFullAndEndsSilentlyWhenItIsGone) {
    const std::string tool = VEXO_TOOL " completion bash";
    EXPECT_EQ(shell("(" + tool + " >/dev/full) 2>&1; echo $?"),
              "vexo: standard output cannot be written: No space left on device\n"
              "remedy: free space where it leads to, or send it elsewhere\n1\n");
    // The reader is gone before the tool begins to write.
    EXPECT_EQ(shell("set -o pipefail; { sleep 0.1; " + tool + "; } 2>&1 | true; echo $?"), "141\n");
}

TEST(Completion, OffersCommandsOptionsAndTheirValues) {
    const std::string complete = "source <(" VEXO_TOOL
                                 " completion bash)\n"
                                 "offered() { COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); _vexo; "
                                 "echo \"${COMPREPLY[@]}\"; }\n";
    EXPECT_EQ(shell(complete + "offered vexo compl"), "completion\n");
    EXPECT_EQ(shell(complete + "offered vexo completion b"), "bash\n");
    EXPECT_EQ(shell(complete + "offered vexo --color ''"), "auto always never\n");
    EXPECT_EQ(shell(complete + "offered vexo completion --col"), "--color\n");
    EXPECT_EQ(shell(complete + "offered vexo --host ''"), "\n");
}

TEST(ManPages, HaveEveryCommandAndOption) {
    EXPECT_EQ(shell(VEXO_TEST_SOURCES "/man_pages " VEXO_TOOL " " VEXO_SIM " " VEXO_MAN_SOURCES),
              "");
}
