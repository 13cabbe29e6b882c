// The doctor's judgement of hosts that we do not have: a good one, and what is wrong with others.
#include <gtest/gtest.h>

#include <fstream>

#include "tools/vexo/doctor/facts_json.h"
#include "tools/vexo/doctor/verdict.h"

using nlohmann::json;

namespace doctor {
namespace {

json host_in(const std::string& file) {
    return json::parse(std::ifstream(VEXO_TEST_SOURCES "/doctor/" + file));
}

json good_host() {
    return host_in("good_host.json");
}

const std::set<std::string> kRecords = {"growth", "wake_ups", "stream", "route", "ports"};

// Facts replace those of the host. Records of the run and of the way are changed in part only.
void change(json& host, const json& patch) {
    for (const auto& [group, facts] : patch.items()) {
        for (const auto& [name, fact] : facts.items()) {
            if (kRecords.count(name) != 0 && fact.is_object() && !fact.contains("unknown")) {
                host[group][name].merge_patch(fact);
            } else {
                host[group][name] = fact;
            }
        }
    }
}

json changed(const std::string& patch) {
    json host = good_host();
    change(host, json::parse(patch));
    return host;
}

std::vector<Result> results_of(const json& host) {
    return judge(from_document(host));
}

// "7 bad, 8 unknown": all that is not good.
std::string ill(const std::vector<Result>& results, bool bad_only = false) {
    std::string text;
    for (const Result& result : results) {
        if (result.state == State::bad || (result.state == State::unknown && !bad_only)) {
            text += (text.empty() ? "" : ", ") + std::to_string(result.id) + ' ' +
                    name_of(result.state);
        }
    }
    return text;
}

const Result& number(int id, const std::vector<Result>& results) {
    return results.at(static_cast<size_t>(id) - 1);
}

// Differences from the good host that leave it a good one.
const char* const kGood[] = {
    R"({})",
    // A guest's clock would be, but guests are never good; root needs no limits.
    R"({"process": {"rtprio_limit": 0, "memlock_limit": 65536, "capabilities": 2199023255551}})",
    R"({"process": {"fifo_errno": {"unknown": "fork: no"}, "group_rt_runtime_us": 950000}})",
    R"({"kernel": {"rt_runtime_us": -1, "transparent_hugepage": "never"}})",
    R"({"memory": {"swaps": ["/dev/sda2"], "swappiness": 10}})",
    // Held off by somebody who holds the file open, or not used in the run.
    R"({"cpu": {"dma_latency_us": 0,
                "idle_states": [{"name": "C6", "latency_us": 133, "disabled": false}]},
        "run": {"growth": {"idle.C6": 700}}})",
    R"({"cpu": {"idle_states": [{"name": "C6", "latency_us": 133, "disabled": false}]}})",
    R"({"cpu": {"smt": true, "siblings": [1, 3]}, "run": {"growth": {"sibling_busy_ms": 30}}})",
    // A small computer: neither frequencies nor sleep states, a driver that moderates nothing.
    R"({"cpu": {"governors": {"absent": "none"}, "idle_states": {"absent": "none"},
                "smt": {"absent": "none"}},
        "interface": {"rx_usecs": {"absent": "none"}, "adaptive_rx": {"absent": "none"},
                      "energy_efficient": {"absent": "none"}, "interrupts": {"absent": "none"}}})",
    // Over TCP neither the privilege nor the queue matters, and a gateway does no harm.
    R"({"purpose": {"path": "tcp"}, "process": {"capabilities": 0}, "network": {"rmem_max": 212992,
        "route": {"gateway": "192.168.7.1"}, "ports": {"2295": "in use", "2299": "open"}}})",
    R"({"process": {"capabilities": 12288}, "network": {"rmem_max": 212992}})",
    // No controller, no port.
    R"({"purpose": {"controller": "", "interface": ""}, "network": {"route": {"unknown": "-"},
        "ports": {"unknown": "-"}}, "run": {"stream": {"unknown": "-"}}})",
    R"({"interface": {"operstate": "unknown"}})",
    R"({"purpose": {"interface": "lo"}, "interface": {"loopback": true, "mtu": 65536, "speed": -1},
        "network": {"route": {"interface": "lo"}}})",
    R"({"load": {"irqbalance": false}})",
    R"({"load": {"realtime_threads": [{"name": "audio", "process": 5, "priority": 79,
                                       "processors": [3]}]}})",
};

TEST(Doctor, FindsNothingWrongWithGoodHosts) {
    for (const char* patch : kGood) {
        const std::vector<Result> results = results_of(changed(patch));
        ASSERT_EQ(results.size(), 37u);
        EXPECT_EQ(ill(results), "") << patch;
        EXPECT_TRUE(decide(results).pass);
    }
    for (const char* file : {"good_industrial_computer.json", "good_workstation.json"}) {
        const std::vector<Result> results = results_of(host_in(file));
        EXPECT_EQ(ill(results), "") << file;
        EXPECT_TRUE(decide(results).pass);
    }
}

// What is wrong with a host, which check finds it, a part of the remedy, and whether the run shows
// that it cost something: "costs", "free", or "" where the run cannot tell.
struct Fault {
    int id;
    const char* patch;
    const char* remedy;
    const char* cost;
};

const Fault kFaults[] = {
    {1, R"({"kernel": {"realtime": false}})", "linux-image-rt-amd64", "free"},
    {2, R"({"process": {"rtprio_limit": 0, "fifo_errno": 1}})", "LimitRTPRIO", ""},
    {2, R"({"process": {"rtprio_limit": 79, "fifo_errno": 1}})", "limits.d", ""},
    {3, R"({"process": {"group_rt_runtime_us": 0, "fifo_errno": 1}})", "cpu.rt_runtime_us", ""},
    {3, R"({"process": {"group_rt_runtime_us": {"unknown": "-"}, "fifo_errno": 1}})",
     "another group", ""},
    {4, R"({"kernel": {"rt_runtime_us": 500000}})", "sched_rt_runtime_us=-1", "free"},
    {4, R"({"run": {"busy_threads": [{"name": "loop", "process": 7, "priority": 40, "percent": 95,
                                        "on_loop": false}]}})",
     "spins", "costs"},
    {5, R"({"process": {"memlock_limit": 8388608}})", "LimitMEMLOCK", ""},
    {6, R"({"memory": {"swaps": ["/dev/sda2"]}})", "swapoff", ""},
    {6, R"({"process": {"swapped_kb": 12}})", "mlockall", ""},
    {7, R"({"cpu": {"governors": {"powersave": [3]}}})", "cpupower frequency-set -g performance",
     "free"},
    {8, R"({"cpu": {"idle_states": [{"name": "C6", "latency_us": 133, "disabled": false}]},
            "run": {"growth": {"idle.C6": 700}}})",
     "/dev/cpu_dma_latency", "costs"},
    {9,
     R"({"cpu": {"smt": true, "siblings": [1, 3]}, "run": {"growth": {"sibling_busy_ms": 4000}}})",
     "sibling", "free"},
    {10, R"({"cpu": {"isolated": []}, "load": {"irqbalance": false}})", "isolcpus=3", "free"},
    {10, R"({"cpu": {"isolated": [2]}, "load": {"irqbalance": false}})", "taskset -c 2", "free"},
    {11, R"({"cpu": {"nohz_full": [3]}})", "nohz_full=", "free"},
    {12, R"({"kernel": {"clocksource": "hpet"}, "run": {"wake_ups": {"clock_read_ns": 1250}}})",
     "clocksource=tsc", "costs"},
    {12, R"({"kernel": {"clocksource": "kvm-clock"}})", "tsc", "free"},
    {13, R"({"cpu": {"hypervisor": true}, "run": {"growth": {"steal_ms": 40}}})", "bare metal",
     "costs"},
    {13, R"({"cpu": {"hypervisor": true}})", "pin", "free"},
    {14, R"({"kernel": {"transparent_hugepage": "always"}})", "echo madvise", "free"},
    {15, R"({"kernel": {"numa_balancing": 1}})", "kernel.numa_balancing=0", "free"},
    {16, R"({"kernel": {"nmi_watchdog": 1}})", "kernel.nmi_watchdog=0", "free"},
    {16, R"({"kernel": {"watchdog": 1}})", "kernel.watchdog=0", "free"},
    {17, R"({"kernel": {"timer_migration": 1}})", "kernel.timer_migration=0", "free"},
    {18, R"({"load": {"pressure": 41.5}})", "taskset -pc 0-2", "free"},
    {19, R"({"load": {"realtime_threads": [{"name": "rival", "process": 77, "priority": 80,
                                            "processors": [2, 3]}]}})",
     "chrt", "costs"},  // the planner of the good host runs, too
    {20, R"({"process": {"quota": 0.5}})", "CPUQuota", "free"},
    {20, R"({"run": {"growth": {"throttled": 3}}})", "--cpus", "costs"},
    {21, R"({"process": {"capabilities": 4096}})", "setcap cap_net_raw", ""},
    {22, R"({"interface": {"operstate": "down"}})", "ip link set enp3s0 up", "free"},
    {22, R"({"interface": {"carrier": 0}})", "cable", "free"},
    {22, R"({"interface": {"operstate": "missing"}})", "ip -br link", "free"},
    {22, R"({"run": {"growth": {"carrier_changes": 2}}})", "cable", "costs"},
    {23, R"({"interface": {"speed": 10}})", "autoneg on", ""},
    {23, R"({"interface": {"duplex": "half"}})", "autoneg on", ""},
    {24, R"({"interface": {"mtu": 1400}})", "mtu 1500", ""},
    {25, R"({"run": {"growth": {"port.rx_missed_errors": 4}}})", "ethtool -G enp3s0", "costs"},
    {25, R"({"run": {"growth": {"port.rx_crc_errors": 1}}})", "cable", "costs"},
    {26, R"({"interface": {"rx_usecs": 50}})", "ethtool -C enp3s0 adaptive-rx off rx-usecs 0",
     "free"},
    {26, R"({"interface": {"adaptive_rx": true}})", "adaptive-rx off", "free"},
    {27, R"({"interface": {"energy_efficient": true}})", "ethtool --set-eee enp3s0 eee off",
     "free"},
    {28, R"({"interface": {"wireless": true}})", "wired", "free"},
    {28, R"({"interface": {"bridge": "br0"}})", "--interface br0", "free"},
    {28, R"({"interface": {"usb": true}})", "PCI", "free"},
    {29, R"({"interface": {"interrupts": {"41": [0, 3]}}, "run": {"growth": {"interrupts": 9}}})",
     "smp_affinity_list", "costs"},
    {30, R"({"run": {"growth": {"softnet_dropped": 1}}})", "netdev_max_backlog", "costs"},
    {30, R"({"run": {"growth": {"softnet_squeezed": 1}}})", "netdev_budget", "costs"},
    {31, R"({"network": {"rmem_max": 212992}, "run": {"stream": {"kernel_drops": 1}}})",
     "rmem_max=4194304", "costs"},
    {32, R"({"network": {"route": {"interface": "eno1"}, "rp_filter": 1}})",
     "ip route add 192.168.1.20 dev enp3s0", ""},
    {32, R"({"network": {"route": {"interface": "enp3s0", "gateway": "10.0.0.1"}}})", "segment",
     ""},
    {32, R"({"network": {"rivals": ["eno1"]}})", "network of its own", ""},
    {33, R"({"network": {"ports": {"2297": "refused"}}})", "service", ""},
    {33, R"({"network": {"ports": {"2295": "timed out"}}})", "pass on the way", ""},
    {33, R"({"network": {"ports": {"2295": "unreachable"}}})", "cable", ""},
    {33, R"({"network": {"ports": {"2295": "forbidden here"}}})", "nft list ruleset", ""},
    {34, R"({"run": {"growth": {"retransmits": 2}}})", "switch", "costs"},
    {35, R"({"run": {"clock_step_us": -20000}})", "slew", "costs"},
    {35, R"({"run": {"clock_slew_ppm": 20000}})", "slew", "free"},
    {36, R"({"run": {"wake_ups": {"p99_9_us": 480, "max_us": 2100, "late_us": 9000}}})", "kernel",
     "costs"},
    {36, R"({"run": {"wake_ups": {"missed": 40}}})", "kernel", "costs"},
    {37, R"({"run": {"stream": {"lost": 1}}})", "cause", "costs"},
    {37, R"({"run": {"stream": {"late": {"wake-up": 11}}}})", "wake-up", "costs"},
    {37, R"({"run": {"stream": {"cuts": 1}}})", "cause", "costs"},
    {37, R"({"run": {"stream": {"silent_us": 2e6}}})", "cause", "costs"},
};

std::string cost_word(const Result& result) {
    switch (result.cost.kind) {
        case Cost::Kind::some:
            return "costs";
        case Cost::Kind::none:
            return "free";
        case Cost::Kind::not_measured:
            return "";
    }
    return "?";
}

TEST(Doctor, FindsEachFaultAndNoOther) {
    std::set<int> found;
    for (const Fault& fault : kFaults) {
        const std::vector<Result> results = results_of(changed(fault.patch));
        EXPECT_EQ(ill(results, true), std::to_string(fault.id) + " bad") << fault.patch;
        const Result& result = number(fault.id, results);
        EXPECT_NE(result.remedy.find(fault.remedy), std::string::npos) << result.remedy;
        EXPECT_EQ(cost_word(result), fault.cost) << fault.patch;
        EXPECT_FALSE(decide(results).pass);
        found.insert(fault.id);
    }
    EXPECT_EQ(found.size(), 37u);
}

// A fact that cannot be read; parts of a record, and counters, that are not there.
std::vector<json> hidden(const std::string& name, const json& fact) {
    json parts = kRecords.count(name) != 0 ? fact : json();
    for (json& part : parts) {
        part = nullptr;
    }
    return name == "growth" ? std::vector<json>{parts}
                            : std::vector<json>{{{"unknown", "hidden"}}, parts};
}

TEST(Doctor, NeverCallsGoodWhatItCannotSee) {
    for (const Fault& fault : kFaults) {
        const json patch = json::parse(fault.patch);
        for (const auto& [group, facts] : patch.items()) {
            for (const auto& [name, fact] : facts.items()) {
                for (const json& instead : hidden(name, fact)) {
                    json host = changed(fault.patch);
                    change(host, {{group, {{name, instead}}}});
                    EXPECT_NE(number(fault.id, results_of(host)).state, State::good)
                        << fault.id << ": " << fault.patch << ", but " << name << ' ' << instead;
                }
            }
        }
    }
}

// What somebody has cut out of a file, or a host does not tell: the checks are not good then.
TEST(Doctor, CallsNothingGoodByWhatIsNotThere) {
    json nothing = good_host();
    for (const char* group :
         {"kernel", "process", "memory", "cpu", "load", "interface", "network", "run"}) {
        nothing.erase(group);
    }
    for (const Result& result : results_of(nothing)) {
        EXPECT_NE(result.state, State::good) << result.title;
    }
    const struct {
        const char* patch;
        std::vector<int> checks;
    } cut[] = {
        {R"({"cpu": {"loop": -1}})", {9, 10, 19, 29}},
        {R"({"cpu": {"governors": {}, "idle_states": []}})", {7, 8}},
        {R"({"cpu": {"smt": true, "siblings": []}})", {9}},
        {R"({"load": {"all_visible": false}})", {19}},
        {R"({"interface": {"interrupts": {}}})", {29}},
        {R"({"network": {"ports": {"2295": null}}})", {33}},
        {R"({"purpose": {"path": "tcp"}})", {33}},  // and nobody asked for 2299
        {R"({"run": {"wake_ups": {"count": 999}}})", {36}},
        {R"({"run": {"stream": {"late": {"peer": null, "wire": null}}}})", {37}},
    };
    for (const auto& [patch, checks] : cut) {
        const std::vector<Result> results = results_of(changed(patch));
        for (const int id : checks) {
            EXPECT_EQ(number(id, results).state, State::unknown) << id << ": " << patch;
        }
    }
}

TEST(Doctor, RanksWhatCostSomethingAboveWhatOnlyCould) {
    const std::vector<Result> results = results_of(changed(R"({
        "kernel": {"realtime": false, "numa_balancing": 1},
        "cpu": {"hypervisor": true, "governors": {"powersave": [0, 1, 2, 3]}},
        "process": {"memlock_limit": 65536},
        "run": {"growth": {"steal_ms": 2000}, "stream": {"lost": 3},
                "wake_ups": {"p99_9_us": 4000, "max_us": 9000, "late_us": 100000}}})"));
    const Verdict verdict = decide(results);
    const auto ids = [](const std::vector<Result>& some) {
        std::vector<int> list;
        for (const Result& result : some) {
            list.push_back(result.id);
        }
        return list;
    };
    EXPECT_EQ(ids(verdict.convicts), (std::vector<int>{13, 36, 1, 7, 37}));
    EXPECT_EQ(ids(verdict.suspects), (std::vector<int>{5, 15}));
    EXPECT_EQ(describe(number(15, results).cost), "cost nothing in this run");
    EXPECT_EQ(describe(number(5, results).cost), "");
    EXPECT_EQ(describe(number(13, results).cost), "the hypervisor took 2000 ms");
}

TEST(Doctor, WritesAScriptThatAShellTakesWhateverTheFactsSay) {
    json host = changed(R"({"purpose": {"interface": "`reboot`"},
        "interface": {"mtu": 1000, "interrupts": {"1; reboot": [3]}},
        "kernel": {"realtime": false, "version": "6.1\nreboot"},
        "cpu": {
    "isolated" : []
}
})");
    const std::string script = fix_script(decide(results_of(host)));
    EXPECT_NE(script.find("\nip link set _reboot_ mtu 1500\n"), std::string::npos) << script;
    EXPECT_NE(script.find("for number in 1__reboot; do"), std::string::npos);
    EXPECT_EQ(script.find("\nreboot"), std::string::npos);
    EXPECT_NE(script.find("\n# by hand: put isolcpus=3"), std::string::npos);
    std::ofstream("script") << script;
    EXPECT_EQ(std::system("sh -n script"), 0);
}

TEST(Doctor, KeepsFactsInAFileAndRefusesOtherFiles) {
    const json host = good_host();
    json again = to_document(from_document(host));
    EXPECT_EQ(json::diff(host, again), json::array());
    for (const char* text :
         {"{}", "[]", "null", R"({"kind": 3})", R"({"kind": "vexo doctor facts", "cpu": 7})",
          R"({"kind": "vexo doctor facts", "cpu": {"smt": "yes"}})",
          R"({"kind": "vexo doctor facts", "interface": {"mtu": 1e300}})"}) {
        EXPECT_ANY_THROW(from_document(json::parse(text))) << text;
    }
}

}  // namespace
}  // namespace doctor
