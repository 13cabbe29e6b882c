// Without this a send or receive could wait too long, end the process, or report a failure wrongly.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>

#include "tests/exchange_socket/connection.h"
#include "tests/support/caller.h"

using namespace test;
using std::chrono::milliseconds;

namespace {

// Bytes that differ from place to place.
std::vector<uint8_t> pattern(size_t size) {
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<uint8_t>(i * 7 + i / 256);
    }
    return bytes;
}

std::vector<uint8_t> read_all(int fd, size_t size) {
    std::vector<uint8_t> bytes(size);
    const ssize_t got = recv(fd, bytes.data(), size, MSG_WAITALL);
    bytes.resize(static_cast<size_t>(std::max<ssize_t>(got, 0)));
    return bytes;
}

bool writable(int fd) {
    pollfd ready{fd, POLLOUT, 0};
    return poll(&ready, 1, 50) == 1;
}

// Sends until neither side's buffer takes any more. Returns how much that was.
size_t fill(int fd) {
    const std::vector<uint8_t> chunk(65536, 0xAA);
    size_t filled = 0;
    while (writable(fd)) {
        const ssize_t sent = send(fd, chunk.data(), chunk.size(), MSG_DONTWAIT);
        filled += static_cast<size_t>(std::max<ssize_t>(sent, 0));
    }
    return filled;
}

milliseconds since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start);
}

struct Transfer {
    const char* function;
    const char* failure;
    int (*call)(int fd);
};

void PrintTo(const Transfer& transfer, std::ostream* out) {
    *out << transfer.function;
}

class SocketTransfer : public ::testing::TestWithParam<Transfer> {
protected:
    void expect_bad_descriptor(int fd) {
        const Account outcome = account_of([=] { return GetParam().call(fd); });
        expect_failure(outcome, GetParam().function,
                       "Select error - Bad file descriptor (errno: 9)");
        EXPECT_EQ(outcome.error, EBADF);
    }
};

}  // namespace

TEST_P(SocketTransfer, RefusesDescriptorsThatAreNotOpen) {
    const int closed = 100;  // no other descriptor gets this number meanwhile
    ASSERT_EQ(dup2(STDOUT_FILENO, closed), closed);
    close(closed);
    expect_bad_descriptor(closed);
    expect_bad_descriptor(-1);
    expect_bad_descriptor(INT_MAX);
}

TEST_P(SocketTransfer, ReportsWhatTheSystemRefuses) {
    const int file = open("/dev/zero", O_RDWR);
    const Account outcome = account_of([=] { return GetParam().call(file); });
    expect_failure(
        outcome, GetParam().function,
        std::string(GetParam().failure) + " - Socket operation on non-socket (errno: 88)");
    EXPECT_EQ(outcome.error, ENOTSOCK);
    close(file);
}

TEST_P(SocketTransfer, ReportsAResetConnection) {
    Connection connection;
    connection.reset();
    const Account outcome = account_of([&] { return GetParam().call(connection.fd); });
    expect_failure(outcome, GetParam().function,
                   std::string(GetParam().failure) + " - Connection reset by peer (errno: 104)");
    EXPECT_EQ(outcome.error, ECONNRESET);
    EXPECT_NE(fcntl(connection.fd, F_GETFD), -1) << "the descriptor stays open";
}

INSTANTIATE_TEST_SUITE_P(Calls, SocketTransfer,
                         ::testing::Values(Transfer{"socket_send", "Send failed",
                                                    [](int fd) { return socket_send(fd, "x", 1); }},
                                           Transfer{"socket_recv", "Receive failed", [](int fd) {
                                                        char byte;
                                                        return socket_recv(fd, &byte, 1, 0);
                                                    }}));

TEST(SocketSend, PassesTheBytesOn) {
    const Connection connection;
    const std::vector<uint8_t> message = pattern(5000);
    const Account outcome =
        account_of([&] { return socket_send(connection.fd, message.data(), 5000); });
    EXPECT_EQ(outcome.result, 5000);
    expect_silence(outcome);
    EXPECT_EQ(read_all(connection.peer, 5000), message);
    EXPECT_EQ(socket_send(connection.fd, message.data(), 0), 0);
}

TEST(SocketSend, GivesUpAfterFiveMillisecondsWithoutRoom) {
    const Connection connection;
    const size_t filled = fill(connection.fd);
    const auto start = std::chrono::steady_clock::now();
    const Account outcome = account_of([&] {
        const int result = socket_send(connection.fd, "x", 1);
        EXPECT_GE(since(start), milliseconds(5));
        return result;
    });
    EXPECT_LT(since(start), milliseconds(1000));
    expect_failure(outcome, "socket_send",
                   "Timeout occurred! Socket not ready to send after 5 milliseconds.");

    shutdown(connection.fd, SHUT_WR);
    EXPECT_EQ(read_all(connection.peer, filled + 1).size(), filled) << "nothing was sent";
}

TEST(SocketReceive, TakesWhatIsThereUpToItsCapacity) {
    const Connection connection;
    const std::vector<uint8_t> message = pattern(10);
    ASSERT_EQ(send(connection.peer, message.data(), 10, 0), 10);
    std::vector<uint8_t> buffer(10, 0xEE);
    EXPECT_EQ(socket_recv(connection.fd, buffer.data(), 4, 1000000), 4);
    EXPECT_EQ(std::vector(buffer.begin() + 4, buffer.end()), std::vector<uint8_t>(6, 0xEE));
    EXPECT_EQ(socket_recv(connection.fd, buffer.data() + 4, 100, 0), 6) << "without a wait";
    EXPECT_EQ(buffer, message);
}

TEST(SocketReceive, WaitsAsLongAsToldAndEndsSilently) {
    const Connection connection;
    char byte = 'u';
    // Microseconds, and milliseconds at least and at most.
    const std::tuple<int, int, int> spans[] = {
        {0, 0, 500}, {20000, 20, 900}, {1500000, 1500, 2900}};
    for (const auto& [limit, least, most] : spans) {
        const auto start = std::chrono::steady_clock::now();
        const Account outcome =
            account_of([&] { return socket_recv(connection.fd, &byte, 1, limit); });
        EXPECT_GE(since(start), milliseconds(least));
        EXPECT_LT(since(start), milliseconds(most));
        EXPECT_EQ(outcome.result, -2);
        expect_silence(outcome);
        EXPECT_EQ(byte, 'u');
    }
}

TEST(SocketReceive, WithoutALimitEndsWithDataAndWithAnOrderlyClose) {
    for (const int limit : {-1, -2, -1500000, INT_MIN}) {
        Connection connection;
        for (const int expected : {1, 0}) {
            char byte = 0;
            const Account outcome = account_of([&] {
                Caller receiver([&] { return socket_recv(connection.fd, &byte, 1, limit); });
                EXPECT_TRUE(receiver.sleeps());
                EXPECT_FALSE(wait_until([&] { return receiver.done(); }, milliseconds(50)));
                if (expected == 1) {
                    send(connection.peer, "x", 1, 0);
                } else {
                    socket_tcp_close(&connection.peer);
                }
                return receiver.result();
            });
            EXPECT_EQ(outcome.result, expected) << limit;
            EXPECT_EQ(byte, expected == 1 ? 'x' : 0);
            expect_silence(outcome);
        }
    }
}
