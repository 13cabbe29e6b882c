#include "soak/session.h"

#include <linux/if_packet.h>
#include <sys/socket.h>

#include <chrono>
#include <stdexcept>

#include "client/dataspace.h"
#include "client/vexo.h"
#include "net/raw_endpoint.h"
#include "soak/probe.h"

namespace soak {

namespace {

// Named first: struct Package. Behind it vectors that make the package long enough to be torn.
constexpr char kOutputs[] =
    "package_counter,uptime_seconds,controller_time,actual_joint_positions,"
    "actual_joint_velocitys,actual_joint_torques,target_joint_positions,actual_joint_currents";
constexpr int kOutputCount = 8;
constexpr auto kCycle = std::chrono::milliseconds(1);

void require(int32_t result, const char* what) {
    if (result != 0) {
        throw std::runtime_error(std::string(what) + ": " + std::to_string(result));
    }
}

const vexo::Dataspace& dataspace(uint32_t handle) {
    return *reinterpret_cast<const vexo::Dataspace*>(get_vexo_dataspace(handle));
}

}  // namespace

Session::Session(const Peer& peer, const std::string& interface) {
    for (size_t i = 0; i < kHandles; ++i) {
        connect(i, interface);
    }
    watch(handles_, peer.record());
    for (const uint32_t handle : handles_) {
        require(vexo_output_start(handle, 0), "vexo_output_start");
    }
}

Session::~Session() {
    end_set_points();
    for (size_t i = kHandles; i-- > 0;) {
        if (handles_[i] != 0) {
            vexo_destroy(handles_[i]);
        }
    }
}

void Session::connect(size_t controller, const std::string& interface) {
    const std::string address = Peer::address(controller);
    const int64_t mode = controller < kTcpHandles ? 2 : 3;
    uint32_t& handle = handles_[controller];
    require(vexo_create_handle(&handle, address.c_str()), "vexo_create_handle");
    require(vexo_create(handle, address.c_str(), interface.c_str(), mode, nullptr), "vexo_create");
    // Raw set-points without acknowledgement: one that the link loses would be waited for for ever.
    require(vexo_protocol_version_request(handle, mode, 1), "vexo_protocol_version_request");
    require(vexo_all_recipe_get(handle), "vexo_all_recipe_get");
    std::array<int32_t, kOutputCount> rows{};
    multi_find(handle, kOutputs, VEXO_FIND_OUTPUT, rows.data());
    uint32_t recipe = 0;
    require(vexo_output_setup_send(handle, kOutputCount, reinterpret_cast<uint32_t*>(rows.data()),
                                   0, &recipe),
            "vexo_output_setup_send");
}

void Session::begin_set_points() {
    thread_ = std::thread([this] { send_set_points(); });
}

void Session::end_set_points() {
    stop_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
}

// One a millisecond, since the commands of all handles follow one another.
void Session::send_set_points() {
    const int32_t servo = find_method_index(handles_[0], "servoJ");
    const std::array<double, 6> target{};
    auto due = std::chrono::steady_clock::now();
    for (size_t turn = 0; !stop_; ++turn, due += kCycle) {
        std::this_thread::sleep_until(due);
        const int32_t result = cvexo_servoj(handles_[turn % kHandles], servo, 0.001, 0, nullptr,
                                            target.size(), target.data());
        ++set_points_;
        refused_ += result != 0 ? 1 : 0;
    }
}

uint64_t Session::overruns() const {
    uint64_t frames = 0;
    for (size_t i = kTcpHandles; i < kHandles; ++i) {
        tpacket_stats counts{};
        socklen_t size = sizeof counts;
        const int fd = vexo::raw_descriptor(dataspace(handles_[i]).raw_socket);
        if (getsockopt(fd, SOL_PACKET, PACKET_STATISTICS, &counts, &size) == 0) {
            frames += counts.tp_drops;
        }
    }
    return frames;
}

}  // namespace soak
