// What every request has in common: its bytes, and each way that it can end.
#include <cstring>
#include <functional>

#include "tests/client/client_fixture.h"

using namespace test;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

enum class Port { io, control };
enum class Unknown { printed, only_logged };

struct Request {
    const char* function;
    std::function<int32_t(uint32_t)> call;
    const char* message;  // the method id is that of row 3, 0x1234
    Port port = Port::io;
    Unknown unknown = Unknown::only_logged;
};

const uint8_t kArgument = static_cast<uint8_t>(300);  // 44
uint64_t bits = 0;
uint32_t recipe_id = 0;
uint32_t no_rows[1];
VexoVariablePage variables;
VexoMethodPage methods;
VexoControllerVersion version;

int32_t get_outputs(uint32_t h) {
    return vexo_output_variables_get(h, 0x01020304, reinterpret_cast<uint32_t*>(&variables));
}

int32_t get_inputs(uint32_t h) {
    return vexo_input_variables_get(h, 5, reinterpret_cast<uint32_t*>(&variables));
}

int32_t get_methods(uint32_t h) {
    return vexo_control_methods_get(h, 6, reinterpret_cast<uint8_t*>(&methods));
}

Request without_arguments(const char* function, int32_t (*command)(uint32_t, int32_t)) {
    return {function, [command](uint32_t h) { return command(h, 3); }, "06 00 6D 34 12 00"};
}

const Request kRequests[] = {
    {"vexo_protocol_version_request",
     [](uint32_t h) { return vexo_protocol_version_request(h, 1, 0); },
     "0B 00 56 01 00 00 00 00 00 00 00", Port::io, Unknown::printed},
    {"vexo_output_variables_get", get_outputs, "07 00 52 04 03 02 01", Port::io, Unknown::printed},
    {"vexo_input_variables_get", get_inputs, "07 00 72 05 00 00 00", Port::io, Unknown::printed},
    {"vexo_control_methods_get", get_methods, "07 00 4D 06 00 00 00"},
    {"vexo_output_setup_send",
     [](uint32_t h) { return vexo_output_setup_send(h, 0, no_rows, 0x0A0B0C0D, &recipe_id); },
     "09 00 4F 0D 0C 0B 0A 00 00"},
    {"vexo_input_setup_send",
     [](uint32_t h) {
         return vexo_input_setup_send(h, 0, reinterpret_cast<int32_t*>(no_rows), &recipe_id);
     },
     "05 00 49 00 00"},
    {"vexo_output_start", [](uint32_t h) { return vexo_output_start(h, 7); }, "03 00 53"},
    {"vexo_output_pause", [](uint32_t h) { return vexo_output_pause(h, 7); }, "03 00 50"},
    {"vexo_get_control_version", [](uint32_t h) { return vexo_get_control_version(h, &version); },
     "03 00 76"},
    {"vexo_set_percentvelocity", [](uint32_t h) { return vexo_set_percentvelocity(h, 3, 0.5); },
     "0F 00 6D 34 12 01 0B 00 00 00 00 00 00 E0 3F"},
    {"vexo_set_setstandarddigitalout",
     [](uint32_t h) { return vexo_set_setstandarddigitalout(h, 3, kArgument, 1); },
     "0A 00 6D 34 12 02 02 2C 01 01"},
    {"vexo_set_setconfigurabledigitalout",
     [](uint32_t h) { return vexo_set_setconfigurabledigitalout(h, 3, 7, 255); },
     "0A 00 6D 34 12 02 02 07 01 FF"},
    {"vexo_set_settooldigitalout",
     [](uint32_t h) { return vexo_set_settooldigitalout(h, 3, 0, 0); },
     "0A 00 6D 34 12 02 02 00 01 00"},
    {"vexo_set_getalldigitalinputbits",
     [](uint32_t h) { return vexo_set_getalldigitalinputbits(h, 3, &bits); }, "06 00 6D 34 12 00"},
    {"vexo_set_getalldigitaloutputbits",
     [](uint32_t h) { return vexo_set_getalldigitaloutputbits(h, 3, &bits); }, "06 00 6D 34 12 00"},
    {"cvexo_servo_stop", [](uint32_t h) { return cvexo_servo_stop(h, 3, -2.0); },
     "0F 00 6D 34 12 01 0B 00 00 00 00 00 00 00 C0", Port::control},
    without_arguments("cvexo_resterror", cvexo_resterror),
    without_arguments("cvexo_startinertiacomp", cvexo_startinertiacomp),
    without_arguments("cvexo_starttorquecomp", cvexo_starttorquecomp),
    without_arguments("cvexo_stopinertiacomp", cvexo_stopinertiacomp),
    without_arguments("cvexo_stoptorquecomp", cvexo_stoptorquecomp),
    without_arguments("cvexo_startlogoutput", cvexo_startlogoutput),
    without_arguments("cvexo_startsensorforceinput", cvexo_startsensorforceinput),
    without_arguments("cvexo_stopsensorforceinput", cvexo_stopsensorforceinput),
};

void PrintTo(const Request& request, std::ostream* out) {
    *out << request.function;
}

class AnyRequest : public ::testing::TestWithParam<Request> {
protected:
    void SetUp() override {
        session_.connect();
        write_u32(session_.dataspace() + kMethodsOffset + 3 * 104 + 100, 0x1234);
        log_init();
    }

    ScriptedPeer& peer() { return GetParam().port == Port::io ? session_.io : session_.control; }
    Bytes message() const { return bytes(GetParam().message); }
    std::string name() const { return GetParam().function; }
    int32_t call() { return GetParam().call(session_.handle); }
    std::string line(const std::string& text) const {
        return "Function:" + name() + " Handle:" + std::to_string(session_.handle) +
               " Time:" + R"([-0-9]{10} [:0-9]{8}\.[0-9]{6} )" + text + "\n";
    }

    Session session_;
};

std::string function_name(const ::testing::TestParamInfo<Request>& info) {
    return info.param.function;
}

// An accepted reply that every request understands: status 0 and a zeroed payload.
const Bytes kAccepted = bytes("10 00 6D 00 00 00 00 00 00 00 00 00 00 00 00 00");

}  // namespace

INSTANTIATE_TEST_SUITE_P(Requests, AnyRequest, ::testing::ValuesIn(kRequests), function_name);

TEST_P(AnyRequest, SendsItsBytesAndPassesTheStatusOn) {
    OutputCapture output;
    peer().expect(message(), kAccepted);
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(output.text(), "");
    peer().expect(message(), bytes("07 00 6D 05 00 00 00"));
    EXPECT_EQ(call(), 5);
    EXPECT_EQ(output.text(), name() + " Error: 5\n");
    EXPECT_THAT(session_.log(), ::testing::ContainsRegex(line(name() + " Error: 5")));
}

TEST_P(AnyRequest, ReportsASendFailureAfterTheReceive) {
    OutputCapture output;
    peer().expect({}, {}, ScriptedPeer::After::close);
    ASSERT_TRUE(peer().done());
    // The first send meets the closed peer, whose answer is a reset; then sends fail.
    const std::string text = "Send failed - Broken pipe (errno: 32)\n" + name() + " send error\n";
    int32_t result = 0;
    EXPECT_TRUE(wait_until([&] {
        result = call();
        return output.text().find(text) != std::string::npos;
    }));
    EXPECT_EQ(result, 302);
    EXPECT_THAT(session_.log(), ::testing::ContainsRegex(line(name() + " send error")));
}

TEST_P(AnyRequest, RefusesAnUnknownHandle) {
    OutputCapture output;
    EXPECT_EQ(GetParam().call(session_.handle + 5000), -1);
    const bool printed = GetParam().unknown == Unknown::printed;
    EXPECT_EQ(output.text(), printed ? name() + "---VexoHandle not found\n" : "");
    EXPECT_THAT(session_.log(), Not(HasSubstr(name())));

    // Handle 0 has a log, and shows what is logged.
    log_init();
    EXPECT_EQ(GetParam().call(0), -1);
    EXPECT_THAT(
        Session::finished_log("sys_log"),
        HasSubstr(" " + name() +
                  (printed ? "---VexoHandle not found\n" : " Error: vexoHandle is NULL\n")));
}

// ---- What single requests have of their own

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

TEST(Negotiation, AsksForTheRawPathWithOrWithoutAcknowledgements) {
    Session session;
    session.connect();
    OutputCapture output;
    session.io.expect(bytes("11 00 56 03 00 03 00 00 00 00 00 00 00 00 00 00 00"),
                      bytes("0D 00 56 00 00 00 00 A1 A2 A3 A4 A5 A6"));
    EXPECT_EQ(vexo_protocol_version_request(session.handle, 3, 9), 0);
    EXPECT_EQ(session.member(kNackOffset), 1U);
    EXPECT_EQ(output.text(), "dstmac: A1-A2-A3-A4-A5-A6\n");
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
    session.io.expect(bytes("03 00 76"), bytes("07 00 76 01 00 00 00"));
    EXPECT_EQ(vexo_get_control_version(session.handle, &record), 1);
    EXPECT_STREQ(record.bootloader, "BC");

    const char* text =
        " \ncontroller model:3\nfirmware_version:1.2\nhardware_version:A\nbootloader_version:\n";
    const std::string log = session.log();
    EXPECT_THAT(log, HasSubstr(text));
    EXPECT_THAT(read_file(kGeneralFile), HasSubstr(text));
    EXPECT_THAT(log, HasSubstr("\nfirmware_version:" + std::string(20, 'F') + std::string(20, 'H') +
                               "BC\n"));
}
