// Without this a request could hand out, keep or log something else than its reply says; what all
// of them have in common is in tests/end_to_end.
#include <cstring>

#include "tests/client/client_fixture.h"
#include "tests/support/caller.h"

using namespace test;
using ::testing::HasSubstr;

TEST(BitRead, StoresTheBitsAndReturnsTheStatusWord) {
    Session session;
    session.connect();
    uint64_t word = 0;
    session.io.expect(bytes("06 00 6D 00 00 00"),
                      bytes("0F 00 6D 00 01 00 00 EF CD AB 89 67 45 23 01"));
    EXPECT_EQ(vexo_set_getalldigitalinputbits(session.handle, 0, &word), 256);
    EXPECT_EQ(word, 0x0123456789ABCDEFU);

    OutputCapture output;
    session.io.expect(bytes("06 00 6D 00 00 00"),
                      bytes("0F 00 6D 05 01 00 00 11 11 11 11 11 11 11 11"));
    EXPECT_EQ(vexo_set_getalldigitaloutputbits(session.handle, 0, &word), 0x105);
    EXPECT_EQ(word, 0x0123456789ABCDEFU) << "a refusal leaves the word alone";
    EXPECT_EQ(output.text(), "vexo_set_getalldigitaloutputbits Error: 261\n");
}

// Otherwise the messages of two threads would mix in the handle's buffer.
TEST(CyclicCall, WaitsForTheCallOfAnotherThread) {
    constexpr uint32_t kUnknown = 12345;
    uint8_t byte = 0;
    const std::pair<pthread_mutex_t*, std::function<int()>> calls[] = {
        {&base_datasend_mutex, [&] { return vexo_input_data_send(kUnknown, 1, &byte); }},
        {&base_datarecv_mutex, [&] { return vexo_ouput_data_receive(kUnknown, 0, &byte, 1); }},
        {&base_servoj_mutex, [&] { return cvexo_servoj(kUnknown, 0, 0, 0, nullptr, 0, nullptr); }}};
    for (const auto& [mutex, call] : calls) {
        pthread_mutex_lock(mutex);
        Caller caller(call);
        EXPECT_TRUE(caller.sleeps());
        pthread_mutex_unlock(mutex);
        EXPECT_EQ(caller.result(), -1);
    }
}

TEST(Command, ReadsAnEmptyRowOutsideTheCatalogue) {
    Session session;
    session.connect();
    for (const int32_t row : {-1, 3000, INT32_MAX, INT32_MIN}) {
        session.io.expect(bytes("06 00 6D 00 00 00"), bytes("07 00 6D 00 00 00 00"));
        EXPECT_EQ(cvexo_resterror(session.handle, row), 0) << row;
    }
}

TEST(Negotiation, SetsThePathByMode) {
    struct {
        int64_t mode;
        const char* message;
        uint32_t page_size;
    } const cases[] = {{0, "0B 00 56 00 00 00 00 00 00 00 00", 10},
                       {1, "0B 00 56 01 00 00 00 00 00 00 00", 10},
                       {2, "0B 00 56 02 00 00 00 00 00 00 00", 200}};
    Session session;
    session.connect();
    log_init();
    for (const auto& c : cases) {
        session.io.expect(bytes(c.message), bytes("07 00 56 00 00 00 00"));
        EXPECT_EQ(vexo_protocol_version_request(session.handle, c.mode, 1), 0);
        EXPECT_EQ(session.member(kVersionWordOffset), static_cast<uint32_t>(c.mode));
        EXPECT_EQ(session.member(kPageSizeOffset), c.page_size);
        EXPECT_EQ(session.dataspace()[kLinkModeOffset], 2);
        EXPECT_EQ(session.member(kNackOffset), 0U);
    }
    EXPECT_THAT(session.log(), HasSubstr(" protocol version request: 2,nack: 1\n"));
    EXPECT_THAT(read_file("vexo_sys_log_log"), HasSubstr(" protocol version request: 2,nack: 1\n"));
}

TEST(Negotiation, StoresTheVersionOfARefusedRequestButNotOfAFailedOne) {
    Session session;
    session.connect();
    OutputCapture output;
    session.io.expect(bytes("0B 00 56 02 00 00 00 00 00 00 00"), bytes("07 00 56 05 00 00 00"));
    EXPECT_EQ(vexo_protocol_version_request(session.handle, 2, 0), 5);
    EXPECT_EQ(session.member(kVersionWordOffset), 2U);
    session.io.expect(bytes("0B 00 56 01 00 00 00 00 00 00 00"), {}, ScriptedPeer::After::close);
    EXPECT_EQ(vexo_protocol_version_request(session.handle, 1, 0), 302);
    EXPECT_EQ(session.member(kVersionWordOffset), 2U);
    EXPECT_EQ(session.member(kPageSizeOffset), 10U) << "the settings stay";
}

TEST(ControllerVersion, FillsTheRecordAndLogsItTwice) {
    Session session;
    session.connect();
    log_init();
    VexoControllerVersion record;
    std::memset(&record, 'x', sizeof record);
    session.io.expect(bytes("03 00 76"), bytes("10 00 76 00 00 00 00 03 00 03 31 2E 32 01 41 00"));
    EXPECT_EQ(vexo_get_control_version(session.handle, &record), 0);
    EXPECT_EQ(record.model, 3);
    EXPECT_EQ(std::string(record.firmware, 20), std::string("1.2") + std::string(17, '\0'));
    EXPECT_STREQ(record.hardware, "A");
    EXPECT_EQ(std::string(record.bootloader, 20), std::string(20, '\0'));

    // Texts are cut to twenty characters, which leaves no room for a terminator.
    session.io.expect(bytes("03 00 76"), bytes("43 00 76 00 00 00 00 03 00 14") + Bytes(20, 'F') +
                                             bytes("1E") + Bytes(30, 'H') + bytes("02 42 43"));
    EXPECT_EQ(vexo_get_control_version(session.handle, &record), 0);
    EXPECT_EQ(std::string(record.firmware, 20), std::string(20, 'F'));
    EXPECT_EQ(std::string(record.hardware, 20), std::string(20, 'H'));
    EXPECT_STREQ(record.bootloader, "BC");
    const char* text =
        " \ncontroller model:3\nfirmware_version:1.2\nhardware_version:A\nbootloader_version:\n";
    const std::string log = session.log();
    EXPECT_THAT(log, HasSubstr(text));
    EXPECT_THAT(read_file(kGeneralFile), HasSubstr(text));
    EXPECT_THAT(log, HasSubstr("\nfirmware_version:" + std::string(20, 'F') + std::string(20, 'H') +
                               "BC\n"));
}
