// Without this the raw path could be set up with a wrong address or flag.
#include "tests/raw_path/raw_path.h"

using namespace test;
using ::testing::HasSubstr;

namespace {

class RawConnection : public RawPath {};

}  // namespace

TEST_F(RawConnection, TakesTheGivenAddressForItsOwn) {
    RawSession session;
    Bytes mac = bytes("02 AA BB CC DD EE");
    log_init();
    ASSERT_EQ(vexo_create(session.handle, session.address.c_str(), "host0", 4, mac.data()), 0);
    EXPECT_EQ(session.bytes_at(kHostMacOffset, 6), mac);
    session.io.expect(bytes("11 00 56 04 00 01 00 00 00 00 00 02 AA BB CC DD EE"),
                      bytes("0D 00 56 00 00 00 00 02 00 00 00 00 0B"));
    ASSERT_EQ(vexo_protocol_version_request(session.handle, 4, 0), 0);
    const uint8_t nothing = 0;
    ASSERT_EQ(vexo_input_data_send(session.handle, 1, &nothing), 0);
    const Bytes frame = robot_->receive();
    EXPECT_EQ(Bytes(frame.begin() + 6, frame.begin() + 12), mac);
    EXPECT_THAT(session.log(), HasSubstr(" vexo_rawsocket_create---srcmac:02-AA-BB-CC-DD-EE\n"));
}

TEST_F(RawConnection, LearnsTheControllersAddress) {
    for (const uint32_t nack : {0U, 9U}) {
        RawSession session(nack == 0 ? 1 : 2);
        OutputCapture output;
        log_init();
        session.negotiate_raw(nack);
        EXPECT_TRUE(wait_until([&] { return session.control.connections() == 1; }));
        EXPECT_EQ(session.receive.connections(), 0);
        EXPECT_EQ(session.member(kVersionWordOffset), nack == 0 ? 0x10003U : 0x30003U);
        EXPECT_EQ(session.member(kNackOffset), nack == 0 ? 0U : 1U);
        EXPECT_EQ(session.member(kPageSizeOffset), 200U);
        EXPECT_EQ(session.dataspace()[kLinkModeOffset], 1);
        EXPECT_EQ(session.bytes_at(kControllerMacOffset, 6), bytes("02 00 00 00 00 0B"));
        EXPECT_EQ(output.text(), "dstmac: 02-00-00-00-00-0B\n");
        const uint8_t nothing = 0;
        ASSERT_EQ(vexo_input_data_send(session.handle, 7, &nothing), 0);
        EXPECT_EQ(robot_->receive(), client_frame(145, 0, bytes("04 00 55 07")));
        const std::string log = session.log();
        EXPECT_THAT(log, HasSubstr(" dstmac: 02-00-00-00-00-0B\n"));
        EXPECT_THAT(log, HasSubstr(" protocol version request: 3,nack: " + std::to_string(nack)));
    }
}

TEST_F(RawConnection, LearnsTheAddressFromARefusalToo) {
    RawSession session;
    ASSERT_EQ(vexo_create(session.handle, session.address.c_str(), "host0", 3, nullptr), 0);
    session.io.expect(bytes("11 00 56 03 00 01 00 00 00 00 00 02 00 00 00 00 0A"),
                      bytes("0D 00 56 05 00 00 00 06 05 04 03 02 01"));
    OutputCapture output;
    EXPECT_EQ(vexo_protocol_version_request(session.handle, 3, 0), 5);
    EXPECT_EQ(output.text(), "vexo_protocol_version_request Error: 5\ndstmac: 06-05-04-03-02-01\n");
    EXPECT_EQ(session.member(kVersionWordOffset), 0x10003U);
    const uint8_t nothing = 0;
    ASSERT_EQ(vexo_input_data_send(session.handle, 1, &nothing), 0);
    const Bytes frame = robot_->receive();
    EXPECT_EQ(Bytes(frame.begin(), frame.begin() + 6), bytes("06 05 04 03 02 01"));
}
