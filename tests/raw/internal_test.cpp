// Without this the fast path could count, refuse or wait otherwise than the rest of the library expects.
#include "net/raw_internal.h"

#include <gtest/gtest.h>
#include <poll.h>

#include "net/raw_instance.h"
#include "tests/raw/raw_link.h"
#include "tests/support/network_namespace.h"

namespace test {
namespace {

class RawInternal : public RawLink {};

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

// In IP mode socket_raw_recvfrom would wait for ever.
TEST_F(RawInternal, TriesToReceiveWithoutAWait) {
    Bytes buffer(1514);
    uint8_t* position = buffer.data();
    uint8_t code = 0;
    const auto result = [&](int instance) {
        return vexo::raw_try_receive(instance, &code, &position, 1514);
    };
    for (const int none : {0, -1, 8}) {
        EXPECT_EQ(-1, vexo::raw_descriptor(none));
        EXPECT_EQ(-100, result(none));
    }
    EXPECT_EQ(-101, result(socket_raw_create("host0", SOCKET_RAW_MODE_IP)));
    const int instance = open_ethernet();
    EXPECT_EQ(-101, result(instance));
    EXPECT_EQ(buffer.data(), position);
    pollfd ready{vexo::raw_descriptor(instance), POLLIN, 0};
    ASSERT_EQ(0, poll(&ready, 1, 0));
    Port::ethernet("robot0")->send(controller_frame(0x90, bytes("01 02")));
    ASSERT_EQ(1, poll(&ready, 1, 10000));
    EXPECT_EQ(2, result(instance));
    EXPECT_EQ(0x90, code);
    EXPECT_EQ(26, position - buffer.data());
}

}  // namespace
}  // namespace test
