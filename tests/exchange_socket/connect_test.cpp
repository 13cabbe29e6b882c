// Without this a connection could be made otherwise than is promised, or its failure be reported
// wrongly.
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>

#include "tests/exchange_socket/connection.h"

using namespace test;

namespace {

// A port of an own address on which nobody listens.
int unused_port() {
    const TcpLink link;
    return port_of(link.listener);
}

}  // namespace

TEST(SocketConnect, MakesABlockingSocketThatGivesUpAfterTwoSyns) {
    const TcpLink link;
    const Account outcome =
        account_of([&] { return socket_connect(own_loopback().c_str(), port_of(link.listener)); });
    const int fd = outcome.result;
    ASSERT_GE(fd, 0);
    expect_silence(outcome);
    EXPECT_EQ(option(fd, IPPROTO_TCP, TCP_SYNCNT), 2);
    EXPECT_EQ(option(fd, IPPROTO_TCP, TCP_NODELAY), 0);
    EXPECT_EQ(option(fd, SOL_SOCKET, SO_PROTOCOL), IPPROTO_TCP);
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    for (const int name : {SO_RCVTIMEO, SO_SNDTIMEO}) {
        timeval limit{-1, -1};
        socklen_t size = sizeof limit;
        EXPECT_EQ(getsockopt(fd, SOL_SOCKET, name, &limit, &size), 0);
        EXPECT_EQ(limit.tv_sec, 0);
        EXPECT_EQ(limit.tv_usec, 0);
    }
    socket_cleanup();
    EXPECT_EQ(socket_send(fd, "x", 1), 1) << "cleaning up leaves connections alone";
    EXPECT_EQ(socket_close(fd), 0);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST(SocketConnect, ReportsARefusedConnection) {
    const int port = unused_port();
    const std::set<int> before = open_descriptors();
    const char* const description = socket_get_error_desc(0);
    const Account outcome =
        account_of([=] { return socket_connect(own_loopback().c_str(), port); });
    expect_failure(outcome, "socket_connect",
                   "Connection failed - Connection refused (errno: 111)");
    EXPECT_EQ(outcome.error, ECONNREFUSED);
    EXPECT_STREQ(description, "Connection refused (errno: 111)") << "the last one";
    EXPECT_EQ(open_descriptors(), before);
}

// Neither the print nor the log may change what the other one or the caller sees.
TEST(SocketConnect, KeepsErrnoWhenPrintingFails) {
    const int port = unused_port();
    const Account outcome = account_of([=] {
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

// A malformed address is no system error: the text shows the errno of before.
TEST(SocketConnect, ReportsAMalformedAddressWithWhateverErrnoHolds) {
    const std::set<int> before = open_descriptors();
    for (const char* address : {"300.1.1.1", "", "127.0.0", "127.0.0.1.1", "127.0.0.1 ",
                                "localhost", "::1", "%s%n", static_cast<const char*>(nullptr)}) {
        const Account outcome = account_of([=] { return socket_connect(address, 2297); }, ENOENT);
        expect_failure(outcome, "socket_connect",
                       std::string("Invalid address ") + (address == nullptr ? "" : address) +
                           " - No such file or directory (errno: 2)");
        EXPECT_EQ(outcome.error, ENOENT);
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST(SocketConnect, ReportsThatThereIsNoDescriptor) {
    const Account outcome = account_of([] {
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

TEST(SocketErrorDescription, GivesTheSystemsTextAndTheNumber) {
    errno = EPIPE;
    const std::pair<int, const char*> cases[] = {{ECONNREFUSED, "Connection refused (errno: 111)"},
                                                 {0, "Success (errno: 0)"},
                                                 {-1, "Broken pipe (errno: 32)"},
                                                 {99999, "Unknown error 99999 (errno: 99999)"},
                                                 {-5, "Unknown error -5 (errno: -5)"}};
    for (const auto& [number, text] : cases) {
        EXPECT_STREQ(socket_get_error_desc(number), text);
        EXPECT_EQ(errno, EPIPE);
    }
    EXPECT_EQ(socket_get_error_desc(EPIPE), socket_get_error_desc(ENOENT)) << "one buffer";
}
