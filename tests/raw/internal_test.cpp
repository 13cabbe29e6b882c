// Without this the fast path could count, refuse or wait otherwise than the rest of the library expects.
#include "net/raw_endpoint.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "net/raw_instance.h"
#include "tests/raw/raw_link.h"
#include "tests/support/network_namespace.h"
#include "tests/support/process.h"

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
TEST_F(RawInternal, TryingToReceiveTellsTheSenderAndNeverWaits) {
    Bytes buffer(64);
    for (const int none : {0, -1, 8}) {
        EXPECT_EQ(-1, vexo::raw_descriptor(none));
        EXPECT_EQ(-100, vexo::raw_try_receive(none, buffer).result);
    }
    for (const int mode : {SOCKET_RAW_MODE_IP, SOCKET_RAW_MODE_ETHERNET}) {
        const int instance = socket_raw_create("host0", mode);
        EXPECT_TRUE(vexo::raw_try_receive(instance, buffer).nothing());
        if (mode == SOCKET_RAW_MODE_IP) {
            Port::ip("10.0.0.5")->send_to("10.0.0.9", controller_message(0x90, bytes("01 02")));
        } else {
            Port::ethernet("robot0")->send(controller_frame(0x90, bytes("01 02")));
        }
        pollfd ready{vexo::raw_descriptor(instance), POLLIN, 0};
        ASSERT_EQ(1, poll(&ready, 1, 10000));
        const vexo::RawMessage message = vexo::raw_try_receive(instance, buffer);
        EXPECT_EQ(2, message.result);
        EXPECT_EQ(0x90, message.code);
        EXPECT_EQ("01 02 ", hex(Bytes(message.payload.begin(), message.payload.end())));
        EXPECT_EQ(mode == SOCKET_RAW_MODE_ETHERNET, message.sender.has_value());
        if (message.sender) {
            EXPECT_EQ("02 00 00 00 00 0B ",
                      hex(Bytes(message.sender->begin(), message.sender->end())));
        }
    }
}

int queue_size(int socket) {
    int size = 0;
    socklen_t length = sizeof size;
    EXPECT_EQ(0, getsockopt(socket, SOL_SOCKET, SO_RCVBUF, &size, &length));
    return size;
}

// An application that reads one frame a cycle would fall behind a long queue by seconds.
TEST_F(RawInternal, TheQueueIsTheSystemsUntilItIsEnlarged) {
    const int datagrams = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int instance = open_ethernet();
    EXPECT_EQ(queue_size(datagrams), queue_size(vexo::raw_descriptor(instance)));
    vexo::raw_enlarge_queue(instance);
    EXPECT_LT(queue_size(datagrams), queue_size(vexo::raw_descriptor(instance)));
    close(datagrams);
}

TEST_F(RawInternal, SocketsAreNoStandardStreams) {
    EXPECT_EQ(0, in_child([] {
                  for (const int stream : {0, 1, 2}) {
                      close(stream);
                  }
                  for (const int mode : {SOCKET_RAW_MODE_IP, SOCKET_RAW_MODE_ETHERNET}) {
                      const int fd = vexo::raw_descriptor(socket_raw_create("host0", mode));
                      if (fd <= STDERR_FILENO || (fcntl(fd, F_GETFD) & FD_CLOEXEC) == 0) {
                          return 1;
                      }
                  }
                  return 0;
              }));
}

}  // namespace
}  // namespace test
