// What goes wrong in the field, reproduced: each ends in time with its exit status, and says its
// cause and the remedy in a line each, as no other does.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/prctl.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <set>
#include <thread>

#include "tests/support/network_namespace.h"
#include "tests/support/process.h"
#include "tests/tools/tool.h"

using test::own_loopback;
using test::SimulatedRobot;

namespace {

struct Mishap {
    std::string fault;    // of the simulator
    std::string command;  // words behind `vexo`, for a shell
    int status;
    std::string cause;  // parts of the lines
    std::string remedy;
};

// What a run said in the end.
struct Words {
    std::string cause;
    std::string remedy;
};

Words last_words(const std::string& text) {
    const size_t cause = text.rfind("vexo: ");
    const size_t remedy = text.rfind("\nremedy: ");
    if (cause == std::string::npos || remedy == std::string::npos || remedy < cause) {
        return {};
    }
    return {text.substr(cause + 6, remedy - cause - 6), text.substr(remedy + 9)};
}

std::string shell_line(const Mishap& mishap, const std::string& host) {
    return "set -o pipefail; export VEXO_HOST=" + host +
           "; vexo() { " VEXO_TOOL " \"$@\" --timeout 2; }; vexo " + mishap.command;
}

Words reproduce(const Mishap& mishap, const std::string& host) {
    using std::chrono::steady_clock;
    const auto begin = steady_clock::now();
    const test::Outcome run = test::run_program({"bash", "-c", shell_line(mishap, host)});
    const std::string name = mishap.fault + " vexo " + mishap.command + '\n' + run.err;
    EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(20)) << name;
    EXPECT_EQ(run.status, mishap.status) << name;
    const Words words = last_words(run.err);
    EXPECT_THAT(words.cause, testing::HasSubstr(mishap.cause)) << name;
    EXPECT_THAT(words.remedy, testing::HasSubstr(mishap.remedy)) << name;
    EXPECT_EQ(words.cause.find('\n'), std::string::npos) << name;
    EXPECT_EQ(words.remedy.find('\n'), words.remedy.size() - 1) << name;
    return words;
}

using Reproduce = std::function<Words(const Mishap& mishap, int number)>;

// Several at a time, as most of them wait. No two may say the same.
void expect_distinct(const std::vector<Mishap>& mishaps, const Reproduce& reproduce_one) {
    std::vector<Words> all(mishaps.size());
    std::atomic<size_t> next = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (size_t k = next++; k < mishaps.size(); k = next++) {
                all[k] = reproduce_one(mishaps[k], static_cast<int>(k) + 1);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::set<std::string> causes;
    for (const Words& words : all) {
        EXPECT_TRUE(causes.insert(words.cause).second) << words.cause;
    }
}

// With a simulator of its own.
Words with_controller(const Mishap& mishap, int number) {
    std::vector<std::string> options;
    if (!mishap.fault.empty()) {
        options = {"-f", mishap.fault};
    }
    const SimulatedRobot robot(options, number);
    return reproduce(mishap, own_loopback(number));
}

}  // namespace

TEST(Mishaps, WithTheController) {
    std::ofstream("empty.json") << "{}";
    const std::vector<Mishap> mishaps = {
        {"half-open=forever", "info", 4, "does not answer requests", "says nothing"},
        {"", "info -H " + own_loopback(250), 4, "port 2295 cannot be connected to: Connection ref",
         "no controller serves"},
        {"refuse=forever,port=stream", "info", 4, "port 2299 cannot be", "some of its ports only"},
        {"type=V,version=2,status=1,times=always", "info", 5, "the protocol version", "--mode 1"},
        {"type=v,status=9,times=always", "info", 5, "refuses it with the status 9", "manual"},
        {"type=V,close,times=always", "info", 4, "connection", "one session"},
        {"type=R,size=9,times=always", "list", 1, "catalogue makes no sense", "damaged"},
        {"type=R,status=4,times=always", "list", 5, "a page of its catalogue", "restart it"},
        {"catalogue=empty.json", "read heartbeat", 1, "catalogue is empty", "configuration"},
        {"type=O,status=3,times=always", "read heartbeat", 5, "the recipe with", "fewer variables"},
        {"type=S,status=6,times=always", "read heartbeat", 5, "to start the stream", "ready"},
        {"silence=forever,port=stream", "read heartbeat", 4, "has streamed nothing", "--timeout"},
        {"package,recipe=99,times=always", "read heartbeat", 4, "none of them is of the recipe",
         "no other program"},
        {"package,size=3,times=always", "read heartbeat", 1, "no package begins where",
         "somebody else"},
        {"package,lost,every=3", "watch heartbeat -n 10", 3, "lost on the way", "vexo doctor"},
        {"package,reset,skip=30", "watch heartbeat -n 50", 3, "the connection was cut", "nobody"},
        {"reboot=100,at=2000,rename=heartbeat:pulse", "watch heartbeat >/dev/null", 1,
         "variables are not what they were", "another catalogue"},
        {"", "watch heartbeat --json -D 6 | (sleep 5.5; cat >/dev/null)", 3, "the output is slow",
         "-r"},
        {"error=17", "servo-test --yes -D 9", 5, "refuses the set-point", "resetError"},
        {"", "servo-test", 2, "takes control of the robot", "--yes"},
        {"type=I,status=9,times=always", "write heartbeat=1", 5, "recipe of the inputs", "own"},
        {"method=setPayload,lost,times=always", "call setPayload 1", 4, "has not answered in time",
         "may be carried out"},
        {"method=setPayload,after=1,reset", "call setPayload 1", 4, "setPayload: the connection",
         "holds one session"},
        {"", "call setPercentVelocity 101", 5, "setPercentVelocity: the controller refuses it",
         "types"},
        {"", "call nope", 1, "\"nope\" is not in the catalogue", "nearest: move"},
        {"", "call heartbeat", 1, "\"heartbeat\" is an input", "list methods"},
        {"", "call moveJ 1,2", 2, "moveJ may move", "--yes"},
        {"", "call isWithinLimits u8:256", 1, "256 is more or less than u8", "0 to 255"},
        {"", "read heartbaet", 1, "\"heartbaet\" is not in the catalogue", "nearest: heartbeat"},
        {"", "watch servoJ", 1, "\"servoJ\" is a method", "vexo call servoJ"},
        {"", "write speed_override=1", 1, "\"speed_override\" is an output", "list inputs"},
        {"", "write heartbeat", 2, "is no NAME=VALUE", "NAME=VALUE"},
        {"", "write heartbeat=soon", 1, "\"soon\" is no u32", "whole number"},
        {"", "write conveyor_speed=nan", 1, "\"nan\" is no f32", "finite number"},
        {"", "write application_step=128", 1, "more or less than i8", "-128 to 127"},
        {"", "write external_force_torque=1,2", 1, "takes 6 elements, not 2", "commas"},
        {"", "write application_text=$(printf %0256d 0)", 1, "too long", "255 bytes"},
        {"", "read heartbeat >/dev/full", 1, "No space left on device", "free space"},
        {"", "latency --hist no/such.svg", 1, "no/such.svg: No such file", "path"},
        {"", "doctor --from missing.json", 1, "missing.json: No such file", "path"},
        {"", "info -H robot", 2, "robot", "--help"},
        {"", "info --mode 3", 2, "3 not in", "--help"},
    };
    expect_distinct(mishaps, with_controller);
}

TEST(Mishaps, OnTheWay) {
    if (const std::string reason = test::enter_network_namespace(); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    test::make_veth_pair("host0", "02:00:00:00:00:0a", "robot0", "02:00:00:00:00:0b");
    test::run_ip("address add 10.77.0.1/24 dev host0");
    test::run_ip("route add blackhole 10.78.0.0/24");
    test::run_ip("route add prohibit 10.79.0.0/24");
    test::shell(
        "nft add table ip f; nft 'add chain ip f in { type filter hook input priority 0; }';"
        "nft add rule ip f in ip daddr 127.80.0.1 drop;"
        "nft add rule ip f in ip daddr 127.80.0.2 reject with icmp type admin-prohibited");
    const SimulatedRobot on_link({"-i", "robot0"});
    const SimulatedRobot without_raw({}, 2);
    const SimulatedRobot elsewhere({"-i", "robot0"}, 3);
    const std::vector<Mishap> mishaps = {
        {"", "info -H 10.90.0.1", 4, "Network is unreachable", "no route"},
        {"", "info -H 10.77.0.9", 4, "nobody on the link answers", "cable"},
        {"", "info -H 10.78.0.1", 4, "Invalid argument", "a route of this host swallows"},
        {"", "info -H 10.79.0.1", 4, "Permission denied", "own rules forbid"},
        {"", "info -H 127.80.0.1", 4, "port 2295 does not answer", "a firewall swallows it"},
        {"", "info -H 127.80.0.2", 4, "No route to host", "firewall or router rejects it"},
        {"", "info --raw nope0", 1, "nope0: No such device", "ip link"},
        {"", "read heartbeat --raw robot0 -H " + own_loopback(3), 4, "no package comes over robot0",
         "the port"},
        {"", "read heartbeat --raw host0 -H " + own_loopback(2), 5, "refuses the raw path",
         "leave --raw out"},
        {"", "read --raw host0 $(vexo list outputs | cut -d ' ' -f 3)", 1, "values take",
         "fewer variables"},
    };
    expect_distinct(mishaps,
                    [](const Mishap& mishap, int) { return reproduce(mishap, own_loopback()); });

    test::run_ip("link set host0 mtu 600");
    const std::string read = "read heartbeat --raw host0";
    const std::string large = " $(vexo list outputs --type f64x6 | cut -d ' ' -f 3)";
    reproduce({"", read + large, 4, "whose MTU is 600", "mtu 1500"}, own_loopback());
    test::run_ip("link set host0 down");
    reproduce({"", read, 4, "host0, which is down", "link set"}, own_loopback());
    ASSERT_EQ(prctl(PR_CAPBSET_DROP, CAP_NET_RAW), 0);
    reproduce({"", read, 1, "host0: Operation not permitted", "setcap"}, own_loopback());
}
