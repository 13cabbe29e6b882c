// The facts as a document. A fact that is not known is an object with the reason; what a document
// does not have counts as not recorded. The records that a fact consists of are whole or unknown.
#include "tools/vexo/doctor/facts_json.h"

#include <algorithm>

#include "tools/vexo/failure.h"

namespace nlohmann {

template <class T>
struct adl_serializer<doctor::Fact<T>> {
    static void to_json(json& document, const doctor::Fact<T>& fact) {
        if (fact.known()) {
            document = *fact;
        } else {
            document = {{fact.absent() ? "absent" : "unknown", fact.reason()}};
        }
    }

    static void from_json(const json& document, doctor::Fact<T>& fact) {
        if (document.is_object() && document.size() == 1 && document.contains("absent")) {
            fact = doctor::Fact<T>::absent(document.at("absent"));
        } else if (document.is_object() && document.size() == 1 && document.contains("unknown")) {
            fact = doctor::Fact<T>::unknown(document.at("unknown"));
        } else if (document.is_null()) {
            fact = doctor::Fact<T>();
        } else {
            read(document, fact);
        }
    }

private:
    // A record that lacks a part must not be judged by what it has.
    static void read(const json& document, doctor::Fact<T>& fact) {
        if (std::is_same_v<T, int64_t> && !document.is_number_integer()) {
            throw json::type_error::create(302, "no whole number", &document);
        }
        try {
            fact = document.get<T>();
        } catch (const json::out_of_range&) {
            fact = doctor::Fact<T>::unknown("recorded in part only");
        }
    }
};

}  // namespace nlohmann

namespace doctor {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Purpose, path, interface, mode, controller)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Kernel, version, realtime, rt_runtime_us,
                                                rt_period_us, transparent_hugepage, numa_balancing,
                                                nmi_watchdog, watchdog, timer_migration,
                                                clocksource)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Process, rtprio_limit, memlock_limit, capabilities,
                                                fifo_errno, group, group_rt_runtime_us, quota,
                                                swapped_kb, affinity)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Memory, swaps, swappiness)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(IdleState, name, latency_us, disabled)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Cpu, loop, online, isolated, nohz_full, governors,
                                                idle_states, dma_latency_us, smt, siblings,
                                                hypervisor)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Thread, name, process, priority, processors)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Load, pressure, realtime_threads, all_visible,
                                                irqbalance)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Interface, operstate, carrier, speed, duplex, mtu,
                                                loopback, wireless, bridge, usb, rx_usecs,
                                                adaptive_rx, energy_efficient, interrupts)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Route, interface, gateway)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Network, rmem_max, route, rp_filter, rivals, ports)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(WakeUps, count, missed, priority, p50_us, p99_us, p99_9_us,
                                   max_us, late_us, clock_read_ns)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Stream, packages, lost, cuts, kernel_drops, late, silent_us,
                                   interval_p50_us, interval_p99_9_us, interval_max_us)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(BusyThread, name, process, priority, percent, on_loop)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Run, seconds, wake_ups, stream, growth,
                                                busy_threads, clock_step_us, clock_slew_ppm)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Facts, host, time, purpose, kernel, process, memory,
                                                cpu, load, interface, network, run)

bool held_elsewhere(const Facts& facts) {
    const auto& ports = facts.network.ports;
    return ports.known() && std::any_of(ports->begin(), ports->end(),
                                        [](const auto& port) { return port.second == "in use"; });
}

namespace {

constexpr const char* kKind = "vexo doctor facts";

}  // namespace

nlohmann::json to_document(const Facts& facts) {
    nlohmann::json document = facts;
    document["kind"] = kKind;
    return document;
}

Facts from_document(const nlohmann::json& document) {
    try {
        if (document.value("kind", "") == kKind) {
            return document.get<Facts>();
        }
    } catch (const nlohmann::json::exception&) {
        // Said below: the place in the document is of no use to whoever gave the wrong file.
    }
    throw tool::Failure(tool::Exit::failed, "bad_file", "this is no file of facts",
                        "give one that `vexo doctor --save` has written");
}

}  // namespace doctor
