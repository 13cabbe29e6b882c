// What the library keeps to itself about the fast path.
#include "net/raw_internal.h"

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstddef>

#include "net/raw_instance.h"
#include "tests/raw/raw_link.h"
#include "tests/support/network_namespace.h"
#include "tests/support/process.h"

namespace test {
namespace {

class RawInternal : public RawLink {};

// From now on the system answers bind with EADDRNOTAVAIL.
bool forbid_bind() {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_bind, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EADDRNOTAVAIL),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter{static_cast<unsigned short>(std::size(program)), program};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

TEST_F(RawInternal, FailedBindingLeavesTheDescriptorOpen) {
    EXPECT_EQ(0, in_child([] {
                  const size_t before = open_descriptors().size();
                  const bool left_open =
                      forbid_bind() && socket_raw_create("host0", SOCKET_RAW_MODE_ETHERNET) == -1 &&
                      errno == EADDRNOTAVAIL && open_descriptors().size() == before + 1 &&
                      vexo::sockrawuse[0] == 0 && vexo::sockrawinst[0].interface_index == 0;
                  return left_open ? 0 : 1;
              }));
}

TEST_F(RawInternal, CountsFramesThatWereNotSentWhole) {
    const int ethernet = open_ethernet();
    const int ip = socket_raw_create("host0", SOCKET_RAW_MODE_IP);
    Bytes frame(2000);
    EXPECT_EQ(26, socket_raw_sendto(ethernet, 0x91, frame.data(), 26));
    EXPECT_EQ(0u, vexo::sockrawsenderrcnt);
    EXPECT_EQ(-1, socket_raw_sendto(ethernet, 0x91, frame.data(), 2000));
    EXPECT_EQ(1u, vexo::sockrawsenderrcnt);
    run_ip("link set host0 down");
    EXPECT_EQ(-1, socket_raw_sendto(ethernet, 0x91, frame.data(), 26));
    EXPECT_EQ(2u, vexo::sockrawsenderrcnt);
    // IP mode does not count.
    socket_raw_set_peerip(ip, 0xC0000201);  // no route there
    EXPECT_EQ(-1, socket_raw_sendto(ip, 0x91, frame.data(), 26));
    EXPECT_EQ(2u, vexo::sockrawsenderrcnt);
}

TEST_F(RawInternal, RecordsThatAreNotValidRefuseToServe) {
    const int instance = open_ethernet();
    const auto robot = Port::ethernet("robot0");
    vexo::RawInstance& record = vexo::sockrawinst[instance];
    Bytes frame(26);
    record.version = 2;
    EXPECT_EQ(-102, socket_raw_sendto(instance, 0x91, frame.data(), 26));
    EXPECT_EQ(0, record.sequence);
    robot->send(controller_frame(0x90, {}));
    EXPECT_EQ(-102, receive_next(instance).result);

    record.version = 1;
    record.mode = 3;
    EXPECT_EQ(-102, socket_raw_sendto(instance, 0x91, frame.data(), 26));
    robot->send(controller_frame(0x90, {}));
    EXPECT_EQ(-102, receive_next(instance).result);
    EXPECT_EQ(Bytes(26), frame);
    EXPECT_EQ(0, socket_raw_free(instance));
    EXPECT_EQ(-1, record.fd);
}

TEST_F(RawInternal, TheDescriptorCanBeWaitedOn) {
    EXPECT_EQ(-1, vexo::raw_descriptor(0));
    EXPECT_EQ(-1, vexo::raw_descriptor(-1));
    EXPECT_EQ(-1, vexo::raw_descriptor(8));
    const int instance = open_ethernet();
    pollfd ready{vexo::raw_descriptor(instance), POLLIN, 0};
    ASSERT_EQ(0, poll(&ready, 1, 0));
    Port::ethernet("robot0")->send(controller_frame(0x90, bytes("01 02")));
    ASSERT_EQ(1, poll(&ready, 1, 10000));

    Bytes buffer(1514);
    uint8_t* position = buffer.data();
    uint8_t code = 0;
    EXPECT_EQ(2, vexo::raw_try_receive(instance, &code, &position, 1514));
    EXPECT_EQ(0x90, code);
    EXPECT_EQ(26, position - buffer.data());
}

// In IP mode socket_raw_recvfrom would wait for ever.
TEST_F(RawInternal, TryingToReceiveNeverWaits) {
    Bytes buffer(64);
    uint8_t* position = buffer.data();
    uint8_t code = 0;
    EXPECT_EQ(-100, vexo::raw_try_receive(0, &code, &position, 64));
    for (const int mode : {SOCKET_RAW_MODE_IP, SOCKET_RAW_MODE_ETHERNET}) {
        const int instance = socket_raw_create("host0", mode);
        EXPECT_EQ(-101, vexo::raw_try_receive(instance, &code, &position, 64));
        EXPECT_EQ(buffer.data(), position);
    }
}

}  // namespace
}  // namespace test
