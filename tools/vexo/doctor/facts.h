// All that the doctor knows of a host: what its checks judge, and what --save writes.
#ifndef TOOLS_VEXO_DOCTOR_FACTS_H
#define TOOLS_VEXO_DOCTOR_FACTS_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/vexo/doctor/fact.h"

namespace doctor {

using Processors = std::vector<int>;

// The priority (SCHED_FIFO) that a control loop is taken to have.
constexpr int kLoopPriority = 80;

// What the host is judged for.
struct Purpose {
    std::string path = "tcp";  // or "raw"
    std::string interface;     // the port; empty: none is known
    std::string controller;    // its address; empty: none was named, and none answers
    uint32_t mode = 2;         // that is negotiated over TCP
};

struct Kernel {
    Fact<std::string> version;
    Fact<bool> realtime;
    Fact<int64_t> rt_runtime_us;  // of all real-time threads in a period; -1: no limit
    Fact<int64_t> rt_period_us;
    Fact<std::string> transparent_hugepage;
    Fact<int64_t> numa_balancing;
    Fact<int64_t> nmi_watchdog;
    Fact<int64_t> watchdog;
    Fact<int64_t> timer_migration;
    Fact<std::string> clocksource;
};

// The doctor's own process stands for the application: same user, same limits, same groups.
struct Process {
    Fact<int64_t> rtprio_limit;
    Fact<int64_t> memlock_limit;  // bytes; -1: no limit
    Fact<uint64_t> capabilities;  // effective
    Fact<int64_t> fifo_errno;     // of trying SCHED_FIFO at the loop's priority; 0: it worked
    Fact<std::string> group;      // folder of the control group that limits its processor time
    Fact<int64_t> group_rt_runtime_us;
    Fact<double> quota;  // processors that the group may use; 0: no limit
    Fact<int64_t> swapped_kb;
    Fact<Processors> affinity;
};

struct Memory {
    Fact<std::vector<std::string>> swaps;
    Fact<int64_t> swappiness;
};

struct IdleState {
    std::string name;
    int64_t latency_us = 0;
    bool disabled = false;
};

struct Cpu {
    int loop = -1;  // the processor of the control loop; -1: not recorded
    Fact<Processors> online;
    Fact<Processors> isolated;
    Fact<Processors> nohz_full;
    Fact<std::map<std::string, Processors>> governors;
    Fact<std::vector<IdleState>> idle_states;  // of the loop's processor
    Fact<int64_t> dma_latency_us;              // what /dev/cpu_dma_latency is held at
    Fact<bool> smt;
    Fact<Processors> siblings;  // of the loop's processor, itself among them
    Fact<bool> hypervisor;
};

struct Thread {
    std::string name;
    int64_t process = 0;
    int64_t priority = 0;   // real-time priority; 0: none
    Processors processors;  // that it may run on
};

struct Load {
    Fact<double> pressure;  // share of the last 10 s in which something waited for a processor, %
    Fact<std::vector<Thread>> realtime_threads;  // the kernel's own ones for each processor not
    Fact<bool> all_visible;                      // false in a container, or where /proc hides some
    Fact<bool> irqbalance;
};

struct Interface {
    Fact<std::string> operstate;
    Fact<int64_t> carrier;
    Fact<int64_t> speed;  // Mbit/s
    Fact<std::string> duplex;
    Fact<int64_t> mtu;
    Fact<bool> loopback;
    Fact<bool> wireless;
    Fact<std::string> bridge;  // that it is a member of; empty: of none
    Fact<bool> usb;
    Fact<int64_t> rx_usecs;  // interrupt moderation
    Fact<bool> adaptive_rx;
    Fact<bool> energy_efficient;
    Fact<std::map<std::string, Processors>> interrupts;  // by number: where they go
};

struct Route {
    std::string interface;
    std::string gateway;  // empty: the controller is on the link
};

struct Network {
    Fact<int64_t> rmem_max;
    Fact<Route> route;
    Fact<int64_t> rp_filter;
    Fact<std::vector<std::string>> rivals;  // other ports with an address in the same network
    Fact<std::map<std::string, std::string>> ports;  // "2295": "open"
};

struct WakeUps {
    int64_t count = 0;
    int64_t missed = 0;    // instants that had passed at the next wake-up
    int64_t priority = 0;  // SCHED_FIFO; 0: the system refused it
    double p50_us = 0;
    double p99_us = 0;
    double p99_9_us = 0;
    double max_us = 0;
    double late_us = 0;        // all that was beyond 100 µs, summed up
    double clock_read_ns = 0;  // what a reading of the clock takes
};

struct Stream {
    int64_t packages = 0;
    int64_t lost = 0;
    int64_t cuts = 0;                     // breaks of the session
    int64_t kernel_drops = 0;             // frames without room in the socket's queue
    std::map<std::string, int64_t> late;  // by cause
    double interval_p50_us = 0;
    double interval_p99_9_us = 0;
    double interval_max_us = 0;
    double silent_us = 0;  // at the end of the run: since the last package
};

struct BusyThread {
    std::string name;
    int64_t process = 0;
    int64_t priority = 0;
    double percent = 0;    // of a processor, in the run
    bool on_loop = false;  // seen on the loop's processor
};

struct Run {
    double seconds = 0;  // 0: none was made
    Fact<WakeUps> wake_ups;
    Fact<Stream> stream;
    std::map<std::string, int64_t> growth;  // of the counters in counters.h
    Fact<std::vector<BusyThread>> busy_threads;
    Fact<double> clock_step_us;   // wall clock against the monotonic one
    Fact<double> clock_slew_ppm;  // monotonic clock against the bare one
};

struct Facts {
    std::string host;
    std::string time;  // RFC 3339
    Purpose purpose;
    Kernel kernel;
    Process process;
    Memory memory;
    Cpu cpu;
    Load load;
    Interface interface;
    Network network;
    Run run;
};

// Whether another program on this host has a connection to the controller.
bool held_elsewhere(const Facts& facts);

}  // namespace doctor

#endif
