// The doctor reads hosts: a pretended one, and this one with faults planted in namespaces, control
// groups and limits.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <thread>

#include "tests/support/program.h"
#include "tests/tools/tool.h"
#include "tools/vexo/doctor/control_group.h"
#include "tools/vexo/doctor/counters.h"
#include "tools/vexo/doctor/gather.h"

using nlohmann::json;
using test::Outcome;
using test::vexo;

namespace doctor {
namespace {

// ---- A pretended host ---------------------------------------------------------------------------

class PretendedHost : public testing::Test {
protected:
    void write(const std::string& path, const std::string& text) {
        const std::string file = root_ + path;
        std::filesystem::create_directories(std::filesystem::path(file).parent_path());
        std::ofstream(file) << text << '\n';
    }
    void link(const std::string& path, const std::string& target) {
        std::filesystem::create_directories(std::filesystem::path(root_ + path).parent_path());
        std::filesystem::create_directories(root_ + target);
        std::filesystem::create_symlink(std::filesystem::absolute(root_ + target), root_ + path);
    }
    Tree tree() const { return Tree(root_); }

    std::string root_ = "host";
};

TEST_F(PretendedHost, TellsOfItsProcessors) {
    const std::string cpu = "/sys/devices/system/cpu/";
    write(cpu + "online", "0-3");
    write(cpu + "isolated", "2-3");
    write(cpu + "nohz_full", "(null)");
    write(cpu + "smt/active", "1");
    write(cpu + "cpu3/topology/thread_siblings_list", "1,3");
    for (const char* processor : {"0", "1", "2"}) {
        write(cpu + "cpu" + processor + "/cpufreq/scaling_governor", "performance");
    }
    write(cpu + "cpu3/cpufreq/scaling_governor", "powersave");
    write(cpu + "cpu3/cpuidle/state1/name", "C6");
    write(cpu + "cpu3/cpuidle/state1/latency", "133");
    write(cpu + "cpu3/cpuidle/state1/disable", "1");
    write(cpu + "cpu3/cpuidle/state1/usage", "70");
    write("/proc/cpuinfo", "processor\t: 0\nflags\t\t: fpu hypervisor vme\nbugs\t\t:");
    write("/proc/stat",
          "cpu  9 9 9 9 9 9 9 5 0 0\ncpu1 1 2 3 99 99 4 5 6 0 0\ncpu3 7 7 7 7 7 7 7 7");

    const Cpu found = read_cpu(tree(), Processors{0, 1, 2, 3});
    EXPECT_EQ(found.loop, 3);
    EXPECT_EQ(*found.isolated, (Processors{2, 3}));
    EXPECT_EQ(*found.nohz_full, Processors());
    EXPECT_TRUE(*found.smt);
    EXPECT_EQ(*found.siblings, (Processors{1, 3}));
    EXPECT_EQ(found.governors->at("powersave"), Processors{3});
    EXPECT_EQ(found.governors->at("performance"), (Processors{0, 1, 2}));
    ASSERT_EQ(found.idle_states->size(), 1u);
    EXPECT_EQ(found.idle_states->front().latency_us, 133);
    EXPECT_TRUE(found.idle_states->front().disabled);
    EXPECT_TRUE(*found.hypervisor);
    EXPECT_EQ(read_cpu(tree(), Processors{1}).loop, 1);

    Facts facts;
    facts.cpu = found;
    const Counters counters = read_counters(tree(), facts);
    const int64_t tick_ms = 1000 / sysconf(_SC_CLK_TCK);
    EXPECT_EQ(counters.values.at("idle.C6"), 70);
    EXPECT_EQ(counters.values.at("steal_ms"), 5 * tick_ms);
    EXPECT_EQ(counters.values.at("sibling_busy_ms"), (1 + 2 + 3 + 4 + 5) * tick_ms);
}

TEST_F(PretendedHost, TellsOfItsKernel) {
    write("/proc/version", "Linux version 6.1.0-18-rt #1 SMP PREEMPT_RT Debian");
    write("/proc/sys/kernel/sched_rt_runtime_us", "-1");
    write("/sys/kernel/mm/transparent_hugepage/enabled", "always [madvise] never");
    write("/proc/swaps", "Filename Type Size Used Priority\n/dev/sda2 partition 9 0 -2");
    write("/proc/pressure/cpu", "some avg10=41.50 avg60=3.00 avg300=0.00 total=1\nfull avg10=0.00");
    write("/proc/2/comm", "kthreadd");
    write("/proc/77/task/78/stat",
          "78 (a b) c) S " + std::string(10, ' ') +
              "1 2 3 4 5 6 7 8 9 10 30 12 13 14 15 16 17 18 19 20 21 22 23 "
              "24 25 26 27 28 29 30 31 32 33 34 35 2 90 1 0 0");
    write("/proc/77/task/78/status", "Name:\ta\nCpus_allowed_list:\t1-2");
    write("/proc/31/task/31/stat",
          "31 (migration/2) S 1 2 3 4 5 6 7 8 9 10 0 0 13 14 15 16 17 18 19 "
          "20 21 22 23 24 25 26 27 28 29 30 31 32 33 34 35 2 99 1 0 0");
    const Kernel kernel = read_kernel(tree());
    EXPECT_TRUE(*kernel.realtime);
    EXPECT_EQ(*kernel.rt_runtime_us, -1);
    EXPECT_EQ(*kernel.transparent_hugepage, "madvise");
    EXPECT_TRUE(kernel.numa_balancing.absent());
    EXPECT_EQ(*read_memory(tree()).swaps, std::vector<std::string>{"/dev/sda2"});
    const Load load = read_load(tree());
    EXPECT_EQ(*load.pressure, 41.5);
    EXPECT_TRUE(*load.all_visible);
    EXPECT_FALSE(*load.irqbalance);
    ASSERT_EQ(load.realtime_threads->size(), 1u);
    const Thread& thread = load.realtime_threads->front();
    EXPECT_EQ(thread.name, "a b) c");
    EXPECT_EQ(thread.process, 77);
    EXPECT_EQ(thread.priority, 90);
    EXPECT_EQ(thread.processors, (Processors{1, 2}));
}

TEST_F(PretendedHost, TellsOfItsPorts) {
    const std::string port = "/sys/class/net/enp3s0";
    const std::string radio = "/sys/class/net/wlan0";
    write(port + "/operstate", "up");
    write(port + "/carrier", "1");
    write(port + "/speed", "-1");
    write(port + "/type", "1");
    link(port + "/device", "/sys/devices/pci0000:00/usb1/1-1");
    link(port + "/master", "/sys/class/net/br0");
    write(port + "/brport/state", "3");
    write(port + "/device/msi_irqs/41", "msix");
    write("/proc/irq/41/effective_affinity_list", "0,3");
    write("/proc/interrupts", "     CPU0 CPU3\n 41:  5  7  PCI-MSIX enp3s0\n 42:  9  9  other");
    write(port + "/carrier_changes", "4");
    write(port + "/statistics/rx_missed_errors", "6");
    write(radio + "/phy80211/index", "0");
    write("/proc/net/softnet_stat",
          "000000ff 00000010 00000001 0 0\n00000001 00000001 0000000a 0 0");

    Facts facts;
    facts.purpose.interface = "enp3s0";
    facts.cpu.loop = 3;
    facts.interface = read_interface(tree(), "enp3s0");
    EXPECT_EQ(*facts.interface.operstate, "up");
    EXPECT_EQ(*facts.interface.speed, -1);
    EXPECT_EQ(*facts.interface.bridge, "br0");
    EXPECT_TRUE(*facts.interface.usb);
    EXPECT_FALSE(*facts.interface.wireless);
    EXPECT_FALSE(*facts.interface.loopback);
    EXPECT_EQ(facts.interface.interrupts->at("41"), (Processors{0, 3}));
    EXPECT_TRUE(*read_interface(tree(), "wlan0").wireless);
    EXPECT_EQ(*read_interface(tree(), "eth7").operstate, "missing");

    const Counters counters = read_counters(tree(), facts);
    EXPECT_EQ(counters.values.at("interrupts"), 7);
    EXPECT_EQ(counters.values.at("carrier_changes"), 4);
    EXPECT_EQ(counters.values.at("port.rx_missed_errors"), 6);
    EXPECT_EQ(counters.values.at("softnet_dropped"), 17);
    EXPECT_EQ(counters.values.at("softnet_squeezed"), 11);
}

TEST_F(PretendedHost, TellsOfItsControlGroups) {
    const std::string mount = "/sys/fs/cgroup";
    write("/proc/self/mountinfo", "30 24 0:26 / /sys/fs/cgroup rw - cgroup2 cgroup2 rw");
    write("/proc/self/cgroup", "0::/robot.slice/loop");
    write(mount + "/cgroup.controllers", "cpu");
    write(mount + "/robot.slice/cpu.max", "50000 100000");
    write(mount + "/robot.slice/cpu.stat", "usage_usec 9\nnr_throttled 4");
    write(mount + "/robot.slice/loop/cpu.max", "max 100000");
    write(mount + "/robot.slice/loop/cpu.stat", "nr_throttled 2");
    const ControlGroup second = find_control_group(tree());
    EXPECT_EQ(*group_quota(tree(), second), 0.5);
    EXPECT_EQ(group_throttled(tree(), second), 6);
    EXPECT_TRUE(group_rt_runtime_us(tree(), second).absent());

    // Version 1 beside it, in a container that sees its own part only.
    write("/proc/self/mountinfo",
          "30 24 0:26 / /sys/fs/cgroup/unified rw - cgroup2 cgroup2 rw\n"
          "31 24 0:27 /box /sys/fs/cgroup/cpu rw shared:9 - cgroup cgroup rw,cpuacct,cpu");
    write("/proc/self/cgroup", "4:cpuacct,cpu:/box/loop\n0::/");
    write(mount + "/cpu/loop/cpu.rt_runtime_us", "0");
    write(mount + "/cpu/loop/cpu.cfs_quota_us", "-1");
    write(mount + "/cpu/cpu.cfs_quota_us", "25000");
    write(mount + "/cpu/cpu.cfs_period_us", "100000");
    const ControlGroup first = find_control_group(tree());
    EXPECT_EQ(*group_rt_runtime_us(tree(), first), 0);
    EXPECT_EQ(*group_quota(tree(), first), 0.25);
}

// ---- This host, with faults ---------------------------------------------------------------------

struct Plant {
    const char* name;
    int id;                // of the check that is to find it
    const char* fact;      // what it says, as a pattern
    const char* remedy;    // a part of it
    const char* options;   // of the doctor
    const char* setup;     // shell: before the fault; where it fails, the machine cannot have it
    const char* fault;     // shell: the fault itself. `with` is put before the doctor
    std::set<int> follow;  // checks that this fault turns red as well
};

void PrintTo(const Plant& plant, std::ostream* out) {
    *out << plant.name;
}

const char* const kCable =
    "mount -t sysfs sysfs /sys; quiet; ip link set lo up; ip link add vx0 type veth peer name vx1;"
    "ip address add 10.77.0.1/24 dev vx0; ip link set vx0 up; ip link set vx1 up;"
    "until [ \"$(cat /sys/class/net/vx0/operstate)\" = up ]; do sleep 0.02; done";
const char* const kDummyPort =
    "mount -t sysfs sysfs /sys; quiet; ip link add vxf type ifb; ip link set vxf up;"
    "ip address add 10.78.0.1/24 dev vxf; ip neigh add 10.78.0.2 lladdr 02:00:00:00:00:01 dev vxf";
const char* const kController = "mount -t sysfs sysfs /sys; quiet; ip link set lo up; controller";
const char* const kControllerAndFirewall =
    "mount -t sysfs sysfs /sys; quiet; ip link set lo up; controller; nft add table inet t;"
    "nft add chain inet t in '{ type filter hook input priority 0; }';"
    "nft add chain inet t out '{ type filter hook output priority 0; }'";
// Of version 1, where real-time threads have budgets.
const char* const kGroup =
    "parent=/sys/fs/cgroup/cpu; group=$parent/vexo-$$; mkdir $group; at_end rmdir $group;"
    "at_end 'echo $$ >'$parent/cgroup.procs; test -e $group/cpu.rt_runtime_us;"
    "test $(cat $parent/cpu.rt_runtime_us) -ge 20000";

const Plant kPlants[] = {
    {"PriorityLimit",
     2,
     "rtprio: 0",
     "LimitRTPRIO",
     "-D 0",
     "",
     "with='prlimit --rtprio=0:0 setpriv --inh-caps=-sys_nice --bounding-set=-sys_nice'",
     {}},
    {"GroupWithoutBudget",
     3,
     "rt_runtime_us = 0",
     "cpu.rt_runtime_us",
     "-D 0",
     kGroup,
     "echo $$ >$group/cgroup.procs",
     {}},
    {"SpinningThread",
     4,
     "one spins",
     "sched_rt_runtime_us",
     "-D 1.5",
     "test $(nproc) -ge 2; chrt -f 1 true",
     "taskset -c 0 chrt -f 1 bash -c 'while :; do :; done' & at_end kill -KILL $!",
     {}},
    {"LockedMemory",
     5,
     "64 KiB",
     "memlock",
     "-D 0",
     "",
     "with='prlimit --memlock=65536:65536 setpriv --inh-caps=-ipc_lock --bounding-set=-ipc_lock'",
     {}},
    {"Rival",
     19,
     "sleep .process \\d+, priority 90",
     "chrt",
     "-D 0",
     "chrt -f 90 true",
     "chrt -f 90 sleep 60 & at_end kill $!; until chrt -p $! | grep -q FIFO; do sleep 0.02; done",
     {}},
    {"Quota",
     20,
     "0.5 processors",
     "CPUQuota",
     "-D 0",
     kGroup,
     "echo 10000 >$group/cpu.rt_runtime_us; echo 50000 >$group/cpu.cfs_quota_us;"
     "echo $$ >$group/cgroup.procs",
     {}},
    {"NoRightToRawFrames",
     21,
     "no CAP_NET_RAW",
     "setcap",
     "-D 0 --for raw",
     "",
     "with='setpriv --inh-caps=-net_raw --bounding-set=-net_raw'",
     {}},
    {"PortDown",
     22,
     "down",
     "ip link set vx0 up",
     "-D 0 --for raw --interface vx0",
     kCable,
     "ip link set vx0 down",
     {}},
    {"CableOut",
     22,
     "down|carrier",
     "cable",
     "-D 0 --interface vx0",
     kCable,
     "ip link set vx1 down",
     {}},
    {"UnknownPort",
     22,
     "there is no vx0",
     "ip -br link",
     "-D 0 --interface vx0",
     kCable,
     "ip link del vx0",
     {}},
    {"UnsteadyLink",
     22,
     "changed \\d+ times|down|carrier",
     "cable",
     "-D 1.5 --interface vx0",
     kCable,
     "{ for i in 1 2 3 4 5 6; do sleep 0.2; ip link set vx1 down; sleep 0.2; ip link set vx1 up;"
     "done; } &",
     {}},
    {"SmallFrames",
     24,
     "MTU 1000",
     "mtu 1500",
     "-D 0 --interface vx0",
     kCable,
     "ip link set vx0 mtu 1000",
     {}},
    {"PortThatDrops",
     25,
     "dropped \\d+",
     "rings",
     "-D 1.5 --interface vxf",
     kDummyPort,
     "while sleep 0.05; do echo >/dev/udp/10.78.0.2/9; done & at_end kill $!",
     {}},
    {"BridgeMember",
     28,
     "member of the bridge br0",
     "--interface br0",
     "-D 0 --interface vx0",
     kCable,
     "ip link add br0 type bridge; ip link set vx0 master br0",
     {}},
    {"NoRoute",
     32,
     "no route",
     "ip address add",
     "-D 0 --timeout 0.2 -H 10.77.0.9 --interface vx0",
     kCable,
     "ip route del 10.77.0.0/24",
     {}},
    {"OtherPort",
     32,
     "over vx1, not over vx0",
     "ip route add 10.77.0.9 dev vx0",
     "-D 0 --timeout 0.2 -H 10.77.0.9 --interface vx0",
     kCable,
     "ip route add 10.77.0.9 dev vx1",
     {}},
    {"TwoPortsInOneNetwork",
     32,
     "vx1 has an address in the same network",
     "network of its own",
     "-D 0 --timeout 0.2 -H 10.77.0.9 --interface vx0",
     kCable,
     "ip address add 10.77.0.2/24 dev vx1; ip route del 10.77.0.0/24 dev vx1",
     {}},
    {"ServiceOff", 33, "2295 refused", "service", "-D 0 -H 127.0.0.9", kController, "stop", {}},
    {"SilentFirewall",
     33,
     "2297 timed out",
     "on the way",
     "-D 0 -H 127.0.0.9 --timeout 0.5",
     kControllerAndFirewall,
     "nft add rule inet t in tcp dport 2297 drop",
     {}},
    {"OwnFirewall",
     33,
     "2299 forbidden here",
     "nft list ruleset",
     "-D 0 -H 127.0.0.9",
     kControllerAndFirewall,
     "nft add rule inet t out tcp dport 2299 drop",
     {}},
    {"LossyWire",
     34,
     "[1-9]\\d* segments",
     "switch",
     "-D 1.5 -H 127.0.0.9",
     kControllerAndFirewall,
     "nft add rule inet t in tcp sport 2299 numgen random mod 20 == 0 drop",
     {37}},
    {"LostPackages",
     37,
     "[1-9]\\d* lost",
     "cause",
     "-D 1.5 -H 127.0.0.9",
     kController,
     "stop; controller -f package,lost,every=50",
     {}},
    {"StreamThatEnds",
     37,
     "cuts|silent for",
     "cause",
     "-D 1.5 -H 127.0.0.9",
     kController,
     "stop; controller -f package,lost,skip=300,times=always",
     {}},
};

// What the rest of the machine does shows in these.
const std::set<int> kWeather = {13, 18, 30, 36, 37};

std::string script_of(const Plant& plant) {
    return std::string(
               "set -eE; with=; ends=()\n"
               "trap 'for end in \"${ends[@]}\"; do eval \"$end\"; done' EXIT\n"
               "at_end() { ends=(\"$*\" \"${ends[@]}\"); }\n"
               "controller() { " VEXO_SIM
               " -a 127.0.0.9 \"$@\" >sim & sim=$!; at_end kill $sim '||' true;\n"
               "  until grep -q ready sim; do sleep 0.02; done; }\n"
               "# Neighbour discovery would send of itself.\n"
               "quiet() { echo 1 >/proc/sys/net/ipv6/conf/default/disable_ipv6 || true; }\n"
               "stop() { kill $sim; wait $sim || true; }\n"
               "doctor() { $with " VEXO_TOOL " doctor --json ") +
           plant.options + " || [ $? -eq 3 ]; }\n" + plant.setup +
           "\n: >possible\ndoctor >before\n" + plant.fault + "\ndoctor >after\n";
}

std::map<int, json> checks(const std::string& file) {
    std::map<int, json> result;
    const json document = json::parse(std::ifstream(file));
    for (const json& check : document.at("checks")) {
        result[check.at("id")] = check;
    }
    return result;
}

class PlantedFault : public testing::TestWithParam<Plant> {};

TEST_P(PlantedFault, IsFoundAndNoOther) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "faults are planted by root only";
    }
    const Plant& plant = GetParam();
    std::ofstream("script") << script_of(plant);
    const Outcome run = test::run_program(
        {"unshare", "--mount", "--net", "--propagation", "private", "bash", "script"});
    if (!std::filesystem::exists("possible")) {
        GTEST_SKIP() << "this machine cannot have the fault: " << run.err;
    }
    ASSERT_EQ(run.status, 0) << run.err;
    std::map<int, json> before = checks("before");
    std::map<int, json> after = checks("after");
    const std::string fact = after[plant.id]["fact"];
    EXPECT_EQ(after[plant.id]["state"], "bad") << after[plant.id];
    EXPECT_TRUE(std::regex_search(fact, std::regex(plant.fact))) << fact;
    EXPECT_NE(after[plant.id]["remedy"].get<std::string>().find(plant.remedy), std::string::npos)
        << after[plant.id];
    for (const auto& [id, check] : after) {
        const bool may_be = id == plant.id || plant.follow.count(id) + kWeather.count(id) != 0;
        EXPECT_TRUE(check["state"] != "bad" || before[id]["state"] == "bad" || may_be) << check;
    }
    if (kWeather.count(plant.id) == 0) {
        EXPECT_NE(before[plant.id]["state"], "bad") << before[plant.id];
    }
}

INSTANTIATE_TEST_SUITE_P(Doctor, PlantedFault, testing::ValuesIn(kPlants),
                         [](const auto& plant) { return std::string(plant.param.name); });

// ---- The command --------------------------------------------------------------------------------

const std::string kGoodHost = VEXO_TEST_SOURCES "/doctor/good_host.json";

TEST(DoctorCommand, JudgesStoredFacts) {
    const Outcome text = vexo({"doctor", "--from", kGoodHost});
    EXPECT_EQ(text.status, 0);
    EXPECT_NE(text.out.find("\n 36  good            wake-ups "), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("\nVerdict: fit for 1 kHz, as far as could be seen.\n"),
              std::string::npos);
    EXPECT_EQ(text.err, "");
    const json document = json::parse(vexo({"doctor", "--from", kGoodHost, "--json"}).out);
    EXPECT_EQ(document.at("checks").size(), 37u);
    EXPECT_EQ(document.at("verdict"), "pass");
}

TEST(DoctorCommand, StoresWhatItJudged) {
    const Outcome live = vexo({"doctor", "-D", "0.1", "--save", "facts", "--json"});
    const Outcome stored = vexo({"doctor", "--from", "facts", "--json"});
    EXPECT_EQ(live.status, stored.status);
    EXPECT_EQ(live.out, stored.out);
    EXPECT_EQ(live.err, "");
    const Outcome script = vexo({"doctor", "--from", "facts", "--fix-script"});
    EXPECT_EQ(script.out.find("#!/bin/sh\n"), 0u);
}

TEST(DoctorCommand, RefusesFilesThatAreNone) {
    std::ofstream("nonsense") << "nonsense";
    for (const char* file : {"nonsense", "missing", "."}) {
        const Outcome run = vexo({"doctor", "--json", "--from", file});
        EXPECT_EQ(run.status, 1) << file;
        EXPECT_EQ(json::parse(run.out).at("error").at("code"), "bad_file");
    }
    EXPECT_EQ(vexo({"doctor", "-D", "0", "--save", "no-such-folder/facts"}).status, 1);
    EXPECT_EQ(vexo({"doctor", "--from", "a", "--save", "b"}).status, 2);
    EXPECT_EQ(vexo({"doctor", "--for", "udp"}).status, 2);
}

TEST(DoctorCommand, EndsItsRunWithTheSummaryAtCtrlC) {
    test::Program program({VEXO_TOOL, "doctor", "-D", "600", "--save", "facts"});
    std::this_thread::sleep_for(std::chrono::seconds(1));  // it says nothing while it runs
    const int status = program.status(SIGINT);
    EXPECT_TRUE(status == 0 || status == 3) << status;
    EXPECT_NE(program.output().find("\nVerdict: "), std::string::npos);
    EXPECT_LT(json::parse(std::ifstream("facts")).at("run").at("seconds"), 600);
}

}  // namespace
}  // namespace doctor
