// vexo record: what is in its files, what starts a black box, and what it says of disks that fail.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/support/process.h"
#include "tests/support/program.h"
#include "tests/tools/tool.h"
#include "tools/mcap/reader.h"
#include "tools/mcap/recipe.h"
#include "tools/vexo/failure.h"
#include "tools/vexo/record/condition.h"

using nlohmann::json;
using test::Outcome;
using test::own_loopback;
using Words = std::vector<std::string>;

namespace {

struct Record : testing::Test {
    Record() : simulator_({VEXO_SIM, "-a", own_loopback()}) { EXPECT_TRUE(simulator_.ready()); }

    static Words command(const std::string& file, const Words& more) {
        Words words = {VEXO_TOOL,      "record", "--timeout", "60", "--host",
                       own_loopback(), "--json", "--output",  file};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }

    test::Program simulator_;
};

struct Taken {
    mcap::Found found;
    std::vector<mcap::Message> messages;  // without their data
    std::vector<uint32_t> counters;       // the first field
};

Taken take(const std::string& path) {
    Taken taken;
    mcap::Reader reader(path);
    taken.found = reader.read([&](const mcap::Message& message) {
        uint32_t counter = 0;
        std::memcpy(&counter, message.data.data() + 4, sizeof counter);
        taken.messages.push_back(message);
        taken.counters.push_back(counter);
    });
    EXPECT_TRUE(taken.found.complete) << path;
    EXPECT_EQ(taken.found.damaged, 0U) << path;
    return taken;
}

// What was in the stream is in the file, or was counted as lost.
void expect_all_counted(const Taken& taken, const json& summary) {
    ASSERT_FALSE(taken.counters.empty());
    EXPECT_EQ(taken.messages.size(), summary["packages"].get<size_t>());
    const uint64_t seen = taken.counters.back() - taken.counters.front() + 1;
    EXPECT_LE(seen, summary["packages"].get<uint64_t>() + summary["lost"].get<uint64_t>());
}

}  // namespace

TEST_F(Record, TakesWhatIsNamedAndRefusesTheRest) {
    const Outcome run = test::run_program(
        command("a.mcap", {"package_counter", "actual_joint_positions", "-D", "0.5"}));
    EXPECT_EQ(run.status, 0) << run.err;
    const json summary = json::parse(run.out);
    const Taken taken = take("a.mcap");
    EXPECT_GT(taken.messages.size(), 100U);
    expect_all_counted(taken, summary);
    EXPECT_EQ(taken.counters.back() - taken.counters.front() + 1, taken.counters.size());
    EXPECT_EQ(summary["file"], "a.mcap");
    EXPECT_EQ(summary["lost"], 0);

    const struct {
        Words arguments;
        int status;
        const char* says;
    } cases[] = {
        {command("a.mcap", {"--all"}), 1, "a.mcap exists"},
        {command("no/where.mcap", {"--all"}), 1, "No such file"},
        {command("b.mcap", {}), 2, "names of variables, or --all"},
        {command("b.mcap", {"package_countre"}), 1, "package_counter"},
        {command("b.mcap", {"--all", "--pre", "1"}), 2, "--on"},
        {command("b.mcap", {"--all", "--on", "error_code !! 3"}), 2, "place 12"},
        {command("b.mcap", {"--all", "--on", "error_codes > 3"}), 1, "error_code"},
    };
    for (const auto& [arguments, status, says] : cases) {
        const Outcome refused = test::run_program(arguments);
        EXPECT_EQ(refused.status, status) << refused.err;
        EXPECT_NE(refused.err.find(says), std::string::npos) << refused.err;
    }
    EXPECT_FALSE(std::filesystem::exists("b.mcap"));
}

TEST_F(Record, KeepsTheTimeBeforeTheConditionHeld) {
    const Outcome run = test::run_program(command(
        "box.mcap", {"package_counter", "--on", "package_counter > 900 and controller_time > 0",
                     "--pre", "0.3", "-D", "0.3"}));
    EXPECT_EQ(run.status, 0) << run.err;
    const Taken taken = take("box.mcap");
    const auto cause = std::find(taken.counters.begin(), taken.counters.end(), 901U);
    ASSERT_NE(cause, taken.counters.end());
    const uint64_t cause_time =
        taken.messages[static_cast<size_t>(cause - taken.counters.begin())].log_time;
    EXPECT_LE(cause_time - taken.messages.front().log_time, 300'000'000U);
    EXPECT_GE(cause_time - taken.messages.front().log_time, 200'000'000U);
    EXPECT_GE(taken.messages.back().log_time - cause_time, 200'000'000U);

    test::Program never(command("never.mcap", {"package_counter", "--on", "package_counter < 0"}));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_EQ(never.status(SIGINT), 0) << never.output();
    EXPECT_FALSE(std::filesystem::exists("never.mcap"));
}

TEST(Condition, HoldsAsItsGrammarSays) {
    mcap::Recipe recipe;
    recipe.add("a", VEXO_TYPE_I16);
    recipe.add("f", VEXO_TYPE_F32);
    recipe.add("my var", VEXO_TYPE_U64);
    recipe.add("joints", VEXO_TYPE_6I32);
    recipe.add("t", VEXO_TYPE_TEXT);
    mcap::Bytes values(recipe.bytes());
    const int16_t a = -5;
    const float f = 0.1F;
    const uint64_t var = UINT64_MAX - 1;
    const int32_t joints[] = {0, 10, 20, 30, 40, 50};
    std::memcpy(&values[0], &a, 2);
    std::memcpy(&values[2], &f, 4);
    std::memcpy(&values[6], &var, 8);
    std::memcpy(&values[14], joints, sizeof joints);
    std::memcpy(&values[38], "run", 3);
    const std::pair<const char*, bool> cases[] = {
        {"a == -5", true},
        {"a<-5 or a>=-4", false},
        {"f == 0.1 and f != 1e-1", false},
        {"'my var' == 18446744073709551614", true},
        {"'my var' >= 0xFFFFFFFFFFFFFFFF", false},
        {"joints[5] > 49.5", true},
        {"t == \"run\" and t != \"runs\"", true},
        {"a > 0 and a > 0 or a < 0", true},
        {"a > 0 and (a > 0 or a < 0)", false},
        {"changed(a)", false},
    };
    for (const auto& [text, holds] : cases) {
        tool::Condition condition(text);
        condition.bind(recipe);
        EXPECT_EQ(condition.holds(values.data()), holds) << text;
    }
    tool::Condition changes("changed(joints) or changed(joints[1])");
    tool::Condition one("changed(joints[1])");
    changes.bind(recipe);
    one.bind(recipe);
    for (const bool changed : {false, false, true, false}) {
        values[14] = static_cast<uint8_t>(values[14] + (changed ? 1 : 0));
        EXPECT_EQ(changes.holds(values.data()), changed);
        EXPECT_FALSE(one.holds(values.data()));
    }

    const std::pair<const char*, const char*> wrong[] = {
        {"", "place 1, at the end: expected the name"},
        {"a", "place 2, at the end: expected a comparison"},
        {"a = 3", "place 3, before `= 3`: expected a comparison"},
        {"a > 3 and", "place 10, at the end: expected the name"},
        {"a > 3x", "place 5, before `3x`: expected a number"},
        {"(a > 3", "place 7, at the end: expected )"},
        {"a > 3 a < 4", "place 7, before `a < 4`: expected and, or, or the end"},
        {"a > 3 or b > 4", "place 10, before `b > 4`: there is no such variable"},
        {"a == \"x\"", "place 1, before `a == \"x\"`: it is no text"},
        {"t < \"x\"", "texts are compared by == and !="},
        {"joints > 1", "it has several elements"},
        {"joints[6] > 1", "it has 6 elements, from 0 on"},
        {"joints[x] > 1", "place 8, before `x] > 1`: expected the number of an element"},
        {"changed(a", "place 10, at the end: expected )"},
        {"'my var > 3", "the closing ' is missing"},
    };
    for (const auto& [text, says] : wrong) {
        try {
            tool::Condition(text).bind(recipe);
            ADD_FAILURE() << text;
        } catch (const tool::Failure& failure) {
            EXPECT_NE(failure.cause.find(says), std::string::npos) << failure.cause;
            EXPECT_EQ(failure.status, tool::Exit::usage);
        }
    }
}

// A small disk of our own, in a namespace.
TEST_F(Record, IsCompleteWhenTheDiskIsFull) {
    const std::string enter =
        "unshare --mount " + std::string(getuid() == 0 ? "" : "--user --map-root-user ");
    if (test::run_program({"bash", "-c", enter + "true"}).status != 0) {
        GTEST_SKIP() << "no mount namespace can be made here";
    }
    std::string line;
    for (const std::string& word : command("small/full.mcap", {"--all", "-D", "2"})) {
        line += word + ' ';
    }
    std::ofstream("fill") << "mkdir small\nmount -t tmpfs -o size=700k none small\n"
                          << line << "\nstatus=$?\ncp small/full.mcap .\nexit $status\n";
    const Outcome run = test::run_program({"bash", "-c", enter + "bash ./fill"});
    EXPECT_EQ(run.status, 3) << run.err;
    EXPECT_NE(run.err.find("No space left"), std::string::npos) << run.err;
    const json summary = json::parse(run.out);
    EXPECT_GT(summary["lost"], 500);
    const Taken taken = take("full.mcap");
    EXPECT_EQ(taken.messages.size(), summary["packages"].get<size_t>());
    EXPECT_GT(taken.messages.size(), 50U);
}

TEST_F(Record, GoesOnWhenItsFileIsRemovedAndSaysSo) {
    for (const bool with_directory : {false, true}) {
        std::filesystem::remove_all("d");
        std::filesystem::create_directory("d");
        test::Program recorder(command("d/a.mcap", {"package_counter"}));
        ASSERT_TRUE(test::wait_until([] { return std::filesystem::exists("d/a.mcap"); },
                                     std::chrono::seconds(60)));
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        with_directory ? std::filesystem::remove_all("d") : std::filesystem::remove("d/a.mcap");
        EXPECT_TRUE(test::wait_until(
            [&] { return recorder.output().find("was removed") != std::string::npos; },
            std::chrono::seconds(30)));
        EXPECT_TRUE(test::wait_until([&] {
            return with_directory ? recorder.output().find("No such file") != std::string::npos
                                  : std::filesystem::exists("d/a.mcap");
        }));
        EXPECT_EQ(recorder.status(SIGINT), 3);
        const std::string output = recorder.output();
        const json summary = json::parse(output.substr(output.find('{')));
        EXPECT_GT(summary["lost"], 100);
        if (!with_directory) {
            EXPECT_EQ(take("d/a.mcap").messages.size(), summary["packages"].get<size_t>());
        }
    }
}

TEST_F(Record, CountsWhatASlowDiskHasNoRoomFor) {
    Words words = command("slow.mcap", {"--all", "-D", "8"});
    words.insert(words.begin(), std::string("LD_PRELOAD=") + VEXO_SLOW_DISK);
    const Outcome run = test::run_program(words);
    EXPECT_EQ(run.status, 3) << run.err;
    EXPECT_NE(run.err.find("longer than a second"), std::string::npos) << run.err;
    const json summary = json::parse(run.out);
    EXPECT_GT(summary["lost"], 100);
    EXPECT_EQ(take("slow.mcap").messages.size(), summary["packages"].get<size_t>());
}
