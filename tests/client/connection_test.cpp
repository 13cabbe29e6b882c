// Without this a connection that fails, or an end, could leave more or less behind than is
// promised.
#include <unistd.h>

#include "net/raw_socket.h"
#include "tests/client/client_fixture.h"
#include "tests/support/allocations.h"

using namespace test;
using ::testing::HasSubstr;

TEST(Connection, DropsTheHandleWhenAPortIsRefused) {
    const std::string texts[] = {"Failed to connect to IO control interface\n",
                                 "Failed to connect to control interface\n",
                                 "Failed to connect to receive interface\n"};
    for (size_t open = 0; open < 3; ++open) {
        const std::string address = own_loopback(1 + static_cast<int>(open));
        std::vector<std::unique_ptr<ScriptedPeer>> open_ports;
        for (size_t i = 0; i < open; ++i) {
            open_ports.push_back(std::make_unique<ScriptedPeer>(address, i == 0 ? 2295 : 2297));
        }
        uint32_t handle = 0;
        ASSERT_EQ(vexo_create_handle(&handle, address.c_str()), 0);
        const int count = VexoHandleData_num;
        const uint32_t listed = VexoHandlelist[0];
        const size_t open_before = open_descriptors().size();
        OutputCapture output;
        const size_t captured = 2;  // descriptors of the capture itself
        log_init();
        EXPECT_EQ(vexo_create(handle, address.c_str(), nullptr, 2, nullptr), -1);
        EXPECT_EQ(output.text(),
                  "Connection failed - Connection refused (errno: 111)\n" + texts[open]);
        EXPECT_EQ(VexoHandleData_num, count - 1);
        EXPECT_EQ(VexoHandlelist[0], listed);
        EXPECT_EQ(get_vexo_dataspace(handle), nullptr);
        EXPECT_THAT(Session::finished_log(address), HasSubstr(" " + texts[open]));
        // The connections made stay open, at both ends.
        EXPECT_TRUE(wait_until(
            [&] { return open_descriptors().size() == open_before + captured + 2 * open; }));
    }
}

TEST(Connection, LosesNothingOfAHandleThatItDrops) {
    const auto drop_one = [](int number) {
        Session session(number);
        session.connect();
        const Bytes row = bytes("61") + Bytes(107);
        build_input_hash(session.handle, 1, row.data());
        build_output_hash(session.handle, 1, row.data());
        build_method_hash(session.handle, 1, row.data());
        EXPECT_EQ(vexo_create(session.handle, own_loopback(9).c_str(), nullptr, 2, nullptr), -1);
        EXPECT_EQ(VexoHandleData_num, 0);
    };
    OutputCapture output;
    drop_one(1);
    const int64_t before = live_bytes();
    drop_one(2);
    EXPECT_LT(live_bytes(), before + 1000);
}

TEST(Connection, KeepsWhicheverHandleIsNotTheLastInTheRegistry) {
    uint32_t first = 0;
    uint32_t second = 0;
    OutputCapture output;
    ASSERT_EQ(vexo_create_handle(&first, "127.0.0.1"), 0);
    ASSERT_EQ(vexo_create_handle(&second, "10.0.0.2"), 0);
    EXPECT_EQ(vexo_create(first, own_loopback(9).c_str(), nullptr, 1, nullptr), -1);
    EXPECT_EQ(check_Handle(second), 0U);
    EXPECT_EQ(check_Handle(first), 1U);
    EXPECT_NE(get_vexo_dataspace(first), nullptr) << "the slot keeps its pointer";
    EXPECT_EQ(vexo_output_start(first, 0), -1) << "but its memory is gone";
}

TEST(Connection, NeedsAHandleAndAnAddress) {
    OutputCapture output;
    uint32_t handle = 0;
    EXPECT_EQ(vexo_create_handle(&handle, nullptr), 0);
    EXPECT_EQ(vexo_create(handle + 5000, "127.0.0.1", nullptr, 2, nullptr), -1);
    EXPECT_EQ(output.text(), "vexo_create---VexoHandle not found\n");
    EXPECT_EQ(vexo_create(handle, nullptr, nullptr, 2, nullptr), -1);
    EXPECT_THAT(output.text(), HasSubstr("\nInvalid address  - "));
}

TEST(Connection, StopsBeforeThePortsWhenTheRawEndpointFails) {
    Session session;
    OutputCapture output;
    log_init();
    // All instances of the raw transport are taken, or the process may not have any.
    while (socket_raw_create("lo", 2) >= 0) {
    }
    EXPECT_EQ(vexo_create(session.handle, session.address.c_str(), "lo", 3, nullptr), 304);
    EXPECT_EQ(output.text(),
              "vexo_rawsocket_create---sock_raw create error:-1\n"
              "vexo_rawsocket_create result:304\n");
    EXPECT_EQ(check_Handle(session.handle), 1U);
    EXPECT_EQ(session.io.connections(), 0);
    EXPECT_EQ(vexo_rawsocket_create(session.handle + 5000, "lo", 2, nullptr), -1);
    EXPECT_THAT(output.text(), HasSubstr("\nvexo_rawsocket_create---VexoHandle not found\n"));
    const std::string log = session.log();
    EXPECT_THAT(log, HasSubstr(" vexo_rawsocket_create---sock_raw create error:-1\n"));
    EXPECT_THAT(log, HasSubstr(" vexo_rawsocket_create result:304\n\n"));
}

TEST(Teardown, CompletesWhenACloseFails) {
    Session session;
    OutputCapture output;
    session.connect();
    uint8_t* sockets = session.dataspace() + kIoSocketOffset;
    const uint32_t real[3] = {read_u32(sockets), read_u32(sockets + 4), read_u32(sockets + 8)};
    for (int i = 0; i < 3; ++i) {
        write_u32(sockets + 4 * i, static_cast<uint32_t>(-1));
    }
    EXPECT_EQ(vexo_destroy(session.handle), -1);
    EXPECT_EQ(output.text(),
              "Failed to close control interface\nFailed to close receive interface\n"
              "Failed to close IO control interface\n");
    EXPECT_EQ(check_Handle(session.handle), 0U);
    for (const uint32_t fd : real) {
        close(static_cast<int>(fd));
    }
}
