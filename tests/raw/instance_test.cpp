// Without this an instance could be another one than the caller thinks, or begin with what the last
// left.
#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "tests/support/network_namespace.h"
#include "tests/support/process.h"
#include "tests/support/raw_link.h"

namespace test {
namespace {

class RawInstances : public RawLink {};

TEST_F(RawInstances, AreEightAndTheLowestFreeOneIsTaken) {
    const std::set<int> before = open_descriptors();
    for (int expected = 0; expected < 8; ++expected) {
        EXPECT_EQ(expected, open_ethernet());
    }
    EXPECT_EQ(socket_raw_create("host0", SOCKET_RAW_MODE_ETHERNET), -1);
    EXPECT_EQ(before.size() + 8, open_descriptors().size());

    EXPECT_EQ(socket_raw_free(5), 0);
    EXPECT_EQ(socket_raw_free(3), 0);
    EXPECT_EQ(socket_raw_free(3), -100);
    EXPECT_EQ(socket_raw_create("host0", SOCKET_RAW_MODE_IP), 3);
    EXPECT_EQ(open_ethernet(), 5);
    for (int instance = 0; instance < 8; ++instance) {
        EXPECT_EQ(socket_raw_free(instance), 0);
    }
    EXPECT_EQ(before, open_descriptors());
}

TEST_F(RawInstances, OfOtherModesAreNotMade) {
    const std::set<int> before = open_descriptors();
    for (const int mode : {0, 3, -1, 0x10000, 0x20003, INT_MIN}) {
        EXPECT_EQ(socket_raw_create("host0", mode), -1) << mode;
    }
    EXPECT_EQ(before, open_descriptors());
    // Only the low 16 bits count.
    EXPECT_EQ(socket_raw_create("host0", 0x10001), 0);
    EXPECT_EQ(socket_raw_create("host0", static_cast<int>(0xFFFF0002)), 1);
    uint8_t buffer[26];
    uint8_t* position = buffer;
    EXPECT_EQ(socket_raw_applysendbuf(0, &position), 8);
    EXPECT_EQ(position - buffer, 8);
    position = buffer;
    EXPECT_EQ(socket_raw_applysendbuf(1, &position), 26);
    EXPECT_EQ(position - buffer, 26);
}

TEST_F(RawInstances, NeedPrivileges) {
    EXPECT_EQ(in_child([] {
                  const bool refused = give_up_privileges() &&
                                       socket_raw_create("host0", SOCKET_RAW_MODE_ETHERNET) == -1 &&
                                       errno == EPERM &&
                                       socket_raw_create("host0", SOCKET_RAW_MODE_IP) == -1 &&
                                       errno == EPERM && socket_raw_free(0) == -100;
                  return refused ? 0 : 1;
              }),
              0);
}

TEST_F(RawInstances, BadNumbersAreRefusedByEveryCall) {
    ASSERT_EQ(open_ethernet(), 0);
    ASSERT_EQ(open_ethernet(), 1);
    ASSERT_EQ(socket_raw_free(1), 0);
    for (const int bad : {1, 7, 8, -1, INT_MAX, INT_MIN}) {
        uint8_t buffer[64]{};
        uint8_t* position = buffer;
        uint8_t code = 0x55;
        EXPECT_EQ(socket_raw_free(bad), -100);
        EXPECT_EQ(socket_raw_set_peerip(bad, 0x7F000001), -100);
        EXPECT_EQ(socket_raw_set_dstmac(bad, buffer), -100);
        EXPECT_EQ(socket_raw_set_srcmac(bad, buffer), -100);
        EXPECT_EQ(socket_raw_get_srcmac(bad, buffer), -100);
        EXPECT_EQ(socket_raw_applysendbuf(bad, &position), -100);
        EXPECT_EQ(socket_raw_sendto(bad, 0x91, buffer, sizeof buffer), -100);
        EXPECT_EQ(socket_raw_recvfrom(bad, &code, &position, sizeof buffer), -100);
        EXPECT_EQ(buffer, position);
        EXPECT_EQ(code, 0x55);
        EXPECT_EQ(buffer[14], 0);
    }
}

TEST_F(RawInstances, StartAfresh) {
    const Bytes other = bytes("12 34 56 78 9A BC");
    Bytes frame(26);
    ASSERT_EQ(open_ethernet(), 0);
    socket_raw_set_dstmac(0, other.data());
    socket_raw_sendto(0, 0x91, frame.data(), 26);
    socket_raw_free(0);

    ASSERT_EQ(open_ethernet(), 0);
    socket_raw_sendto(0, 0x91, frame.data(), 26);
    EXPECT_EQ(hex(Bytes(&frame[0], &frame[6])), hex(bytes("01 0E CF 00 00 00")));
    EXPECT_EQ(hex(Bytes(&frame[20], &frame[22])), "00 00 ");
}

// The source address of the row's last user stays when the interface has none to give.
TEST_F(RawInstances, KeepTheSourceAddressThatCannotBeRead) {
    ASSERT_EQ(open_ethernet(), 0);
    socket_raw_free(0);
    ASSERT_EQ(socket_raw_create("nothing0", SOCKET_RAW_MODE_ETHERNET), 0);
    Bytes source(6);
    EXPECT_EQ(socket_raw_get_srcmac(0, source.data()), 0);
    EXPECT_EQ(hex(source), hex(bytes("02 00 00 00 00 0A")));

    const Bytes own = bytes("12 34 56 78 9A BC");
    ASSERT_EQ(open_ethernet(), 1);
    EXPECT_EQ(socket_raw_set_srcmac(1, own.data()), 0);
    socket_raw_free(1);
    ASSERT_EQ(socket_raw_create("nothing0", SOCKET_RAW_MODE_IP), 1);
    EXPECT_EQ(socket_raw_get_srcmac(1, source.data()), 0);
    EXPECT_EQ(hex(own), hex(source));
}

TEST_F(RawInstances, TakeTheAddressOfTheirInterface) {
    run_ip("link add name abcdefghijklmno address 02:00:00:00:00:0f type veth peer name other0");
    Bytes mac(6, 0xEE);
    EXPECT_EQ(socket_get_macaddress("abcdefghijklmnopqrstuvwxyz", mac.data()), 0);
    EXPECT_EQ(hex(mac), hex(bytes("02 00 00 00 00 0F"))) << "15 characters of a name count";
    EXPECT_EQ(socket_get_macaddress("lo", mac.data()), 0);
    EXPECT_EQ(hex(mac), hex(Bytes(6)));
    const Bytes untouched(6, 0xEE);
    mac = untouched;
    EXPECT_EQ(socket_get_macaddress("nothing0", mac.data()), -1);
    EXPECT_EQ(errno, ENODEV);
    EXPECT_EQ(socket_get_macaddress(nullptr, mac.data()), -1);
    EXPECT_EQ(untouched, mac);

    const std::string endless(5000, 'x');
    EXPECT_EQ(socket_raw_create(endless.c_str(), SOCKET_RAW_MODE_ETHERNET), 0);
    EXPECT_EQ(socket_raw_create("abcdefghijklmnopq", SOCKET_RAW_MODE_ETHERNET), 1);
    EXPECT_EQ(socket_raw_get_srcmac(1, mac.data()), 0);
    EXPECT_EQ(hex(mac), hex(bytes("02 00 00 00 00 0F")));
}

TEST_F(RawInstances, RaiseTheFlagsOfTheirInterface) {
    run_ip("link set host0 multicast off");
    open_ethernet();
    ifreq request{};
    std::string("host0").copy(request.ifr_name, IFNAMSIZ - 1);
    const int probe = socket(AF_INET, SOCK_DGRAM, 0);
    EXPECT_EQ(ioctl(probe, SIOCGIFFLAGS, &request), 0);
    close(probe);
    EXPECT_TRUE(request.ifr_flags & IFF_MULTICAST);
    EXPECT_TRUE(request.ifr_flags & IFF_UP);
    EXPECT_FALSE(request.ifr_flags & IFF_PROMISC);
}

}  // namespace
}  // namespace test
