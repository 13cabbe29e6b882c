// Without this the fast path could count, refuse or wait otherwise than the rest of the library
// expects.
#include "net/raw_endpoint.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "net/raw_instance.h"
#include "tests/support/network_namespace.h"
#include "tests/support/process.h"
#include "tests/support/raw_link.h"

namespace test {
namespace {

class RawInternal : public RawLink {};

TEST_F(RawInternal, CountsFramesThatWereNotSentWhole) {
    const int ethernet = open_ethernet();
    const int ip = socket_raw_create("host0", SOCKET_RAW_MODE_IP);
    Bytes frame(2000);
    EXPECT_EQ(socket_raw_sendto(ethernet, 0x91, frame.data(), 26), 26);
    EXPECT_EQ(vexo::sockrawsenderrcnt, 0u);
    EXPECT_EQ(socket_raw_sendto(ethernet, 0x91, frame.data(), 2000), -1);
    EXPECT_EQ(vexo::sockrawsenderrcnt, 1u);
    run_ip("link set host0 down");
    EXPECT_EQ(socket_raw_sendto(ethernet, 0x91, frame.data(), 26), -1);
    EXPECT_EQ(vexo::sockrawsenderrcnt, 2u);
    // IP mode does not count.
    socket_raw_set_peerip(ip, 0xC0000201);  // no route there
    EXPECT_EQ(socket_raw_sendto(ip, 0x91, frame.data(), 26), -1);
    EXPECT_EQ(vexo::sockrawsenderrcnt, 2u);
}

TEST_F(RawInternal, RecordsThatAreNotValidRefuseToServe) {
    const int instance = open_ethernet();
    const auto robot = Port::ethernet("robot0");
    vexo::RawInstance& record = vexo::sockrawinst[instance];
    Bytes frame(26);
    record.version = 2;
    EXPECT_EQ(socket_raw_sendto(instance, 0x91, frame.data(), 26), -102);
    EXPECT_EQ(record.sequence, 0);
    robot->send(controller_frame(0x90, {}));
    EXPECT_EQ(receive_next(instance).result, -102);

    record.version = 1;
    record.mode = 3;
    EXPECT_EQ(socket_raw_sendto(instance, 0x91, frame.data(), 26), -102);
    robot->send(controller_frame(0x90, {}));
    EXPECT_EQ(receive_next(instance).result, -102);
    EXPECT_EQ(frame, Bytes(26));
    EXPECT_EQ(socket_raw_free(instance), 0);
    EXPECT_EQ(record.fd, -1);
}

// In IP mode socket_raw_recvfrom would wait for ever.
TEST_F(RawInternal, TryingToReceiveTellsTheSenderAndNeverWaits) {
    Bytes buffer(64);
    for (const int none : {0, -1, 8}) {
        EXPECT_EQ(vexo::raw_descriptor(none), -1);
        EXPECT_EQ(vexo::raw_try_receive(none, buffer).result, -100);
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
        ASSERT_EQ(poll(&ready, 1, 10000), 1);
        const vexo::RawMessage message = vexo::raw_try_receive(instance, buffer);
        EXPECT_EQ(message.result, 2);
        EXPECT_EQ(message.code, 0x90);
        EXPECT_EQ(hex(Bytes(message.payload.begin(), message.payload.end())), "01 02 ");
        EXPECT_EQ(mode == SOCKET_RAW_MODE_ETHERNET, message.sender.has_value());
        if (message.sender) {
            EXPECT_EQ(hex(Bytes(message.sender->begin(), message.sender->end())),
                      "02 00 00 00 00 0B ");
        }
    }
}

int queue_size(int socket) {
    int size = 0;
    socklen_t length = sizeof size;
    EXPECT_EQ(getsockopt(socket, SOL_SOCKET, SO_RCVBUF, &size, &length), 0);
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

// The marker in front of the last frame's payload tells that nothing else came before it.
TEST_F(RawInternal, ListeningToOneStationLeavesOutWhatOthersSendWell) {
    const int instance = open_ethernet();
    const auto robot = Port::ethernet("robot0");
    const auto from = [](const char* station, Bytes frame) {
        std::ranges::copy(bytes(station), frame.begin() + 6);
        return frame;
    };
    const auto altered = [&](size_t place, uint8_t value) {
        Bytes frame = from("02 00 00 00 00 09", controller_frame(0x90, bytes("01 02")));
        frame[place] = value;
        return frame;
    };
    const Bytes large = controller_frame(0x90, Bytes(1400));
    const struct {
        const char* what;
        Bytes frame;
        bool passes;
        long result;
    } frames[] = {
        {"the station's", controller_frame(0x90, bytes("01 02")), true, 2},
        {"the station's, large", large, true, 1400},
        {"another's, in the last byte", from("02 00 00 00 00 0C", large), false, 0},
        {"another's, in the first byte", from("12 00 00 00 00 0B", large), false, 0},
        {"another's, in the fourth byte", from("02 00 00 01 00 0B", large), false, 0},
        {"another's, empty", from("02 00 00 00 00 09", controller_frame(0x90, {})), false, 0},
        {"without a checksum that holds", altered(26, 9), false, 0},
        {"another marker", altered(14, 0xA7), true, -102},
        {"another magic", altered(18, 0xC9), true, -102},
        {"and its second byte", altered(19, 0xB8), true, -102},
        {"a payload a byte too long", altered(22, 3), true, -102},
        {"and 256 bytes too long", altered(23, 1), true, -102},
        {"a payload shorter than the frame", altered(22, 1), false, 0},
        {"too short for a header", Bytes(large.begin(), large.begin() + 25), true, -102},
        {"the station's, bad", Bytes(large.begin(), large.begin() + 1425), true, -102},
    };
    vexo::raw_listen_to(instance, {0x02, 0, 0, 0, 0, 0x0B});
    for (const auto& [what, frame, passes, result] : frames) {
        robot->send(frame);
        if (passes) {
            EXPECT_EQ(receive_next(instance).result, result) << what;
        }
        robot->send(controller_frame(0x91, bytes("01 02 03")));
        EXPECT_EQ(receive_next(instance).code, 0x91) << what;
    }
    vexo::raw_listen_to(instance, {0x02, 0, 0, 0, 0, 0x09});  // it moved
    robot->send(large);
    robot->send(altered(22, 2));
    EXPECT_EQ(receive_next(instance).result, 2);
    vexo::raw_listen_to_all(instance);
    robot->send(large);
    EXPECT_EQ(receive_next(instance).result, 1400);
    for (const int none : {-1, 8, socket_raw_create("host0", SOCKET_RAW_MODE_IP)}) {
        vexo::raw_listen_to(none, {});
        vexo::raw_listen_to_all(none);
    }
}

TEST_F(RawInternal, SocketsAreNoStandardStreams) {
    EXPECT_EQ(in_child([] {
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
              }),
              0);
}

}  // namespace
}  // namespace test
