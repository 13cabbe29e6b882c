// The table of instances, and what their sockets are made of.
#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "tests/raw/raw_link.h"
#include "tests/support/network_namespace.h"
#include "tests/support/process.h"

namespace test {
namespace {

class RawInstances : public RawLink {};

TEST_F(RawInstances, AreEightAndTheLowestFreeOneIsTaken) {
    const std::set<int> before = open_descriptors();
    for (int expected = 0; expected < 8; ++expected) {
        EXPECT_EQ(expected, open_ethernet());
    }
    EXPECT_EQ(-1, socket_raw_create("host0", SOCKET_RAW_MODE_ETHERNET));
    EXPECT_EQ(before.size() + 8, open_descriptors().size());

    EXPECT_EQ(0, socket_raw_free(5));
    EXPECT_EQ(0, socket_raw_free(3));
    EXPECT_EQ(-100, socket_raw_free(3));
    EXPECT_EQ(3, socket_raw_create("host0", SOCKET_RAW_MODE_IP));
    EXPECT_EQ(5, open_ethernet());
    for (int instance = 0; instance < 8; ++instance) {
        EXPECT_EQ(0, socket_raw_free(instance));
    }
    EXPECT_EQ(before, open_descriptors());
}

TEST_F(RawInstances, OfOtherModesAreNotMade) {
    const std::set<int> before = open_descriptors();
    for (const int mode : {0, 3, -1, 0x10000, 0x20003, INT_MIN}) {
        EXPECT_EQ(-1, socket_raw_create("host0", mode)) << mode;
    }
    EXPECT_EQ(before, open_descriptors());
    // Only the low 16 bits count.
    EXPECT_EQ(0, socket_raw_create("host0", 0x10001));
    EXPECT_EQ(1, socket_raw_create("host0", static_cast<int>(0xFFFF0002)));
    uint8_t buffer[26];
    uint8_t* position = buffer;
    EXPECT_EQ(8, socket_raw_applysendbuf(0, &position));
    EXPECT_EQ(8, position - buffer);
    position = buffer;
    EXPECT_EQ(26, socket_raw_applysendbuf(1, &position));
    EXPECT_EQ(26, position - buffer);
}

TEST_F(RawInstances, NeedPrivileges) {
    EXPECT_EQ(0, in_child([] {
                  const bool refused = give_up_privileges() &&
                                       socket_raw_create("host0", SOCKET_RAW_MODE_ETHERNET) == -1 &&
                                       errno == EPERM &&
                                       socket_raw_create("host0", SOCKET_RAW_MODE_IP) == -1 &&
                                       errno == EPERM && socket_raw_free(0) == -100;
                  return refused ? 0 : 1;
              }));
}

TEST_F(RawInstances, BadNumbersAreRefusedByEveryCall) {
    ASSERT_EQ(0, open_ethernet());
    ASSERT_EQ(1, open_ethernet());
    ASSERT_EQ(0, socket_raw_free(1));
    for (const int bad : {1, 7, 8, -1, INT_MAX, INT_MIN}) {
        uint8_t buffer[64]{};
        uint8_t* position = buffer;
        uint8_t code = 0x55;
        EXPECT_EQ(-100, socket_raw_free(bad));
        EXPECT_EQ(-100, socket_raw_set_peerip(bad, 0x7F000001));
        EXPECT_EQ(-100, socket_raw_set_dstmac(bad, buffer));
        EXPECT_EQ(-100, socket_raw_set_srcmac(bad, buffer));
        EXPECT_EQ(-100, socket_raw_get_srcmac(bad, buffer));
        EXPECT_EQ(-100, socket_raw_applysendbuf(bad, &position));
        EXPECT_EQ(-100, socket_raw_sendto(bad, 0x91, buffer, sizeof buffer));
        EXPECT_EQ(-100, socket_raw_recvfrom(bad, &code, &position, sizeof buffer));
        EXPECT_EQ(buffer, position);
        EXPECT_EQ(0x55, code);
        EXPECT_EQ(0, buffer[14]);
    }
}

TEST_F(RawInstances, StartAfresh) {
    const Bytes other = bytes("12 34 56 78 9A BC");
    Bytes frame(26);
    ASSERT_EQ(0, open_ethernet());
    socket_raw_set_dstmac(0, other.data());
    socket_raw_sendto(0, 0x91, frame.data(), 26);
    socket_raw_free(0);

    ASSERT_EQ(0, open_ethernet());
    socket_raw_sendto(0, 0x91, frame.data(), 26);
    EXPECT_EQ(hex(bytes("01 0E CF 00 00 00")), hex(Bytes(&frame[0], &frame[6])));
    EXPECT_EQ("00 00 ", hex(Bytes(&frame[20], &frame[22])));
}

// The source address of the row's last user stays when the interface has none to give.
TEST_F(RawInstances, KeepTheSourceAddressThatCannotBeRead) {
    ASSERT_EQ(0, open_ethernet());
    socket_raw_free(0);
    ASSERT_EQ(0, socket_raw_create("nothing0", SOCKET_RAW_MODE_ETHERNET));
    Bytes source(6);
    EXPECT_EQ(0, socket_raw_get_srcmac(0, source.data()));
    EXPECT_EQ(hex(bytes("02 00 00 00 00 0A")), hex(source));

    const Bytes own = bytes("12 34 56 78 9A BC");
    ASSERT_EQ(1, open_ethernet());
    EXPECT_EQ(0, socket_raw_set_srcmac(1, own.data()));
    socket_raw_free(1);
    ASSERT_EQ(1, socket_raw_create("nothing0", SOCKET_RAW_MODE_IP));
    EXPECT_EQ(0, socket_raw_get_srcmac(1, source.data()));
    EXPECT_EQ(hex(own), hex(source));
}

TEST_F(RawInstances, TakeTheAddressOfTheirInterface) {
    run_ip("link add name abcdefghijklmno address 02:00:00:00:00:0f type veth peer name other0");
    Bytes mac(6, 0xEE);
    EXPECT_EQ(0, socket_get_macaddress("abcdefghijklmnopqrstuvwxyz", mac.data()));
    EXPECT_EQ(hex(bytes("02 00 00 00 00 0F")), hex(mac)) << "15 characters of a name count";
    EXPECT_EQ(0, socket_get_macaddress("lo", mac.data()));
    EXPECT_EQ(hex(Bytes(6)), hex(mac));
    const Bytes untouched(6, 0xEE);
    mac = untouched;
    EXPECT_EQ(-1, socket_get_macaddress("nothing0", mac.data()));
    EXPECT_EQ(ENODEV, errno);
    EXPECT_EQ(-1, socket_get_macaddress(nullptr, mac.data()));
    EXPECT_EQ(untouched, mac);

    const std::string endless(5000, 'x');
    EXPECT_EQ(0, socket_raw_create(endless.c_str(), SOCKET_RAW_MODE_ETHERNET));
    EXPECT_EQ(1, socket_raw_create("abcdefghijklmnopq", SOCKET_RAW_MODE_ETHERNET));
    EXPECT_EQ(0, socket_raw_get_srcmac(1, mac.data()));
    EXPECT_EQ(hex(bytes("02 00 00 00 00 0F")), hex(mac));
}

TEST_F(RawInstances, RaiseTheFlagsOfTheirInterface) {
    run_ip("link set host0 multicast off");
    open_ethernet();
    ifreq request{};
    std::string("host0").copy(request.ifr_name, IFNAMSIZ - 1);
    const int probe = socket(AF_INET, SOCK_DGRAM, 0);
    EXPECT_EQ(0, ioctl(probe, SIOCGIFFLAGS, &request));
    close(probe);
    EXPECT_TRUE(request.ifr_flags & IFF_MULTICAST);
    EXPECT_TRUE(request.ifr_flags & IFF_UP);
    EXPECT_FALSE(request.ifr_flags & IFF_PROMISC);
}

}  // namespace
}  // namespace test
