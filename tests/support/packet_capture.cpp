#include "tests/support/packet_capture.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <vector>

namespace test {

namespace {

constexpr uint32_t snapshot_length = 65536;
constexpr int queue_bytes = 8 << 20;

void put_words(std::ostream& out, std::initializer_list<uint32_t> words) {
    for (const uint32_t word : words) {
        out.write(reinterpret_cast<const char*>(&word), sizeof word);
    }
}

timespec arrival_of(msghdr& message) {
    timespec time{};
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part; part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SCM_TIMESTAMPNS) {
            std::memcpy(&time, CMSG_DATA(part), sizeof time);
        }
    }
    return time;
}

// Takes the next frame from the socket; false when there is none.
bool copy_frame(int socket, std::vector<char>& frame, std::ostream& out) {
    iovec place{frame.data(), frame.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(timespec))];
    msghdr message{};
    message.msg_iov = &place;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t whole = recvmsg(socket, &message, MSG_DONTWAIT | MSG_TRUNC);
    if (whole < 0) {
        return false;
    }
    const auto length = static_cast<uint32_t>(whole);
    const uint32_t kept = std::min(length, snapshot_length);
    const timespec time = arrival_of(message);
    put_words(out, {static_cast<uint32_t>(time.tv_sec), static_cast<uint32_t>(time.tv_nsec), kept,
                    length});
    out.write(frame.data(), kept);
    return true;
}

std::string artifact_path() {
    const char* named = std::getenv("VEXO_TEST_ARTIFACTS");
    const std::filesystem::path directory =
        named != nullptr ? std::filesystem::path(named) : std::filesystem::temp_directory_path();
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = std::string(test->test_suite_name()) + "." + test->name() + ".pcap";
    std::replace(name.begin(), name.end(), '/', '-');
    std::filesystem::create_directories(directory);
    return directory / name;
}

}  // namespace

PacketCapture::PacketCapture(const std::string& interface_name)
    : socket_(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)) {
    const int on = 1;
    setsockopt(socket_, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
    setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &queue_bytes, sizeof queue_bytes);  // to its limit
    setsockopt(socket_, SOL_SOCKET, SO_RCVBUFFORCE, &queue_bytes, sizeof queue_bytes);
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex(interface_name.c_str()));
    if (address.sll_ifindex == 0 ||
        bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ADD_FAILURE() << "no capture on " << interface_name << ": " << std::strerror(errno);
    }
}

PacketCapture::~PacketCapture() {
    if (::testing::Test::HasFailure()) {
        const std::string path = artifact_path();
        save(path);
        std::cout << "The frames of this test: " << path << std::endl;
    }
    close(socket_);
}

void PacketCapture::save(const std::string& path) {
    constexpr uint32_t magic_nanoseconds = 0xA1B23C4D;
    constexpr uint32_t version_2_4 = 2 | 4 << 16;
    constexpr uint32_t link_ethernet = 1;
    std::ofstream out(path, std::ios::binary);
    put_words(out, {magic_nanoseconds, version_2_4, 0, 0, snapshot_length, link_ethernet});
    std::vector<char> frame(snapshot_length);
    while (copy_frame(socket_, frame, out)) {
    }
}

}  // namespace test
