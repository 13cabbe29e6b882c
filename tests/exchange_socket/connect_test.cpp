#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>

#include "tests/exchange_socket/connection.h"

using namespace test;

namespace {

timeval time_option(int fd, int name) {
    timeval value{-1, -1};
    socklen_t size = sizeof value;
    EXPECT_EQ(getsockopt(fd, SOL_SOCKET, name, &value, &size), 0);
    return value;
}

// A port of an own address on which nobody listens.
int unused_port() {
    int listener = socket_tcp_listen(0, own_address(), 1);
    const int port = port_of(listener);
    socket_tcp_close(&listener);
    return port;
}

}  // namespace

TEST(SocketConnect, ReachesAListenerSilently) {
    int listener = socket_tcp_listen(0, own_address(), 1);
    const int port = port_of(listener);
    const Outcome outcome =
        outcome_of([=] { return socket_connect(own_loopback().c_str(), port); });
    ASSERT_GE(outcome.result, 0);
    expect_silence(outcome);
    EXPECT_EQ(socket_close(outcome.result), 0);
    EXPECT_EQ(fcntl(outcome.result, F_GETFD), -1);
    socket_tcp_close(&listener);
}

TEST(SocketConnect, MakesABlockingSocketThatGivesUpAfterTwoSyns) {
    const Connection connection;
    EXPECT_EQ(option(connection.fd, IPPROTO_TCP, TCP_SYNCNT), 2);
    EXPECT_EQ(option(connection.fd, IPPROTO_TCP, TCP_NODELAY), 0);
    EXPECT_EQ(option(connection.fd, SOL_SOCKET, SO_PROTOCOL), IPPROTO_TCP);
    EXPECT_EQ(fcntl(connection.fd, F_GETFL) & O_NONBLOCK, 0);
    for (const int name : {SO_RCVTIMEO, SO_SNDTIMEO}) {
        const timeval limit = time_option(connection.fd, name);
        EXPECT_EQ(limit.tv_sec, 0);
        EXPECT_EQ(limit.tv_usec, 0);
    }
}

TEST(SocketConnect, ReportsARefusedConnection) {
    const int port = unused_port();
    const std::set<int> before = open_descriptors();
    const Outcome outcome =
        outcome_of([=] { return socket_connect(own_loopback().c_str(), port); });
    expect_failure(outcome, "socket_connect",
                   "Connection failed - Connection refused (errno: 111)");
    EXPECT_EQ(outcome.error, ECONNREFUSED);
    errno = outcome.error;
    EXPECT_STREQ(socket_get_error_desc(-1), "Connection refused (errno: 111)");
    EXPECT_EQ(open_descriptors(), before);
}

// Neither the print nor the log may change what the other one or the caller sees.
TEST(SocketConnect, KeepsErrnoWhenPrintingFails) {
    const int port = unused_port();
    const Outcome outcome = outcome_of([=] {
        std::setvbuf(stdout, nullptr, _IONBF, 0);
        const int output = dup(STDOUT_FILENO);
        const int full = open("/dev/full", O_WRONLY);
        dup2(full, STDOUT_FILENO);
        const int result = socket_connect(own_loopback().c_str(), port);
        const int error = errno;
        dup2(output, STDOUT_FILENO);
        close(output);
        close(full);
        errno = error;
        return result;
    });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.error, ECONNREFUSED);
    EXPECT_EQ(outcome.logged,
              std::vector<std::string>{"Function:socket_connect Handle:0 Connection "
                                       "failed - Connection refused (errno: 111)"});
}

class MalformedAddress : public ::testing::TestWithParam<const char*> {};

// A malformed address is no system error: the text shows the errno of before.
TEST_P(MalformedAddress, IsReportedWithWhateverErrnoHolds) {
    const std::set<int> before = open_descriptors();
    const Outcome outcome = outcome_of([] { return socket_connect(GetParam(), 2297); }, ENOENT);
    expect_failure(
        outcome, "socket_connect",
        std::string("Invalid address ") + GetParam() + " - No such file or directory (errno: 2)");
    EXPECT_EQ(outcome.error, ENOENT);
    EXPECT_EQ(open_descriptors(), before);
}

INSTANTIATE_TEST_SUITE_P(Addresses, MalformedAddress,
                         ::testing::Values("300.1.1.1", "", "127.0.0", "127.0.0.1.1", "127.0.0.1 ",
                                           "localhost", "::1", "%s%n"));

TEST(SocketConnect, TakesAMissingAddressForAnEmptyOne) {
    const Outcome outcome = outcome_of([] { return socket_connect(nullptr, 2297); });
    expect_failure(outcome, "socket_connect", "Invalid address  - Success (errno: 0)");
}

TEST(SocketConnect, PrintsALongAddressWholeAndLogsItsBeginning) {
    const std::string address(3000, '1');
    const Outcome outcome = outcome_of([&] { return socket_connect(address.c_str(), 2297); });
    const std::string text = "Invalid address " + address + " - Success (errno: 0)";
    EXPECT_EQ(outcome.printed, text + "\n");
    EXPECT_EQ(outcome.logged,
              std::vector<std::string>{"Function:socket_connect Handle:0 " + text.substr(0, 1023)});
    EXPECT_EQ(log_string, text.substr(0, 1023));
}

TEST(SocketConnect, ReportsThatThereIsNoDescriptor) {
    const Outcome outcome = outcome_of([] {
        log_write(0, "f", "opens the file");
        EXPECT_TRUE(wait_until([] { return read_file(kGeneralFile).ends_with("file\n"); }));
        rlimit saved{};
        getrlimit(RLIMIT_NOFILE, &saved);
        const rlimit none{0, saved.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
        const int result = socket_connect("127.0.0.1", 2295);
        setrlimit(RLIMIT_NOFILE, &saved);
        return result;
    });
    const std::string text =
        "Socket creation failed for 127.0.0.1:2295 - Too many open files (errno: 24)";
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.printed, text + "\n");
    EXPECT_EQ(outcome.logged.back(), "Function:socket_connect Handle:0 " + text);
}

struct ErrorText {
    int number;
    const char* text;
};

TEST(SocketErrorDescription, GivesTheSystemsTextAndTheNumber) {
    errno = EPIPE;
    for (const ErrorText& expected :
         {ErrorText{ECONNREFUSED, "Connection refused (errno: 111)"},
          ErrorText{0, "Success (errno: 0)"}, ErrorText{-1, "Broken pipe (errno: 32)"},
          ErrorText{99999, "Unknown error 99999 (errno: 99999)"},
          ErrorText{-5, "Unknown error -5 (errno: -5)"}}) {
        EXPECT_STREQ(socket_get_error_desc(expected.number), expected.text);
        EXPECT_EQ(errno, EPIPE);
    }
    EXPECT_EQ(socket_get_error_desc(EPIPE), socket_get_error_desc(ENOENT)) << "one buffer";
}

TEST(SocketClose, ReturnsWhatTheSystemSays) {
    const Outcome outcome = outcome_of([] { return socket_close(-1); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.error, EBADF);
    expect_silence(outcome);
}

TEST(SocketCleanup, LeavesConnectionsAlone) {
    const Connection connection;
    socket_cleanup();
    EXPECT_EQ(socket_send(connection.fd, "x", 1), 1);
    const Connection later;
}
