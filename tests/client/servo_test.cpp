// Without this a set-point could be sent in the form of another version, or with a number twice.
#include <cstring>

#include "tests/client/client_fixture.h"

using namespace test;
using ::testing::HasSubstr;

namespace {

const double kVector[6] = {1, 1, 1, 1, 1, 1};
const double kValues[] = {-2, -2, -2};
const char* const kOne = "00 00 00 00 00 00 F0 3F";
const char* const kMinusTwo = "00 00 00 00 00 00 00 C0";
const Bytes kAccepted = bytes("07 00 6D 00 00 00 00");

Bytes repeat(const std::string& hex, int times) {
    Bytes all;
    for (int i = 0; i < times; ++i) {
        all = all + bytes(hex);
    }
    return all;
}

struct ServoSession : Session {
    explicit ServoSession(uint32_t version) : Session(1 + static_cast<int>(version % 100)) {
        connect();
        write_u32(dataspace() + kVersionWordOffset, version);
        write_u32(dataspace() + kMethodsOffset + 104 + 100, 0x0201);
        log_init();
    }

    // Expects the message behind its length word, for the next sequence number.
    void expect(const Bytes& message) {
        const size_t length = message.size() + 2;
        control.expect(
            Bytes{static_cast<uint8_t>(length), static_cast<uint8_t>(length >> 8)} + message,
            kAccepted);
    }

    int32_t servo(uint8_t flag, const double* vector, uint8_t count) const {
        return cvexo_servoj(handle, 1, 0.5, flag, vector, count, kValues);
    }
};

// From the type letter to the flag byte.
Bytes head(const char* arguments, const char* sequence, const char* flag) {
    return bytes("6D 01 02") + bytes(arguments) + bytes("0B 00 00 00 00 00 00 E0 3F 04") +
           bytes(sequence) + bytes("02") + bytes(flag);
}

// Form 2 with the one value -2.
Bytes one_value(const char* sequence) {
    return head("05", sequence, "00") + bytes("13 01 01 0B") + bytes(kMinusTwo);
}

const Bytes kVectorArgument = bytes("0D") + repeat(kOne, 6);

}  // namespace

TEST(Servo, HasTheFormOfItsVersionAndTheVectorWithItsFlag) {
    {
        ServoSession s(1);
        s.expect(head("07", "01 00 00 00", "09") + bytes("02 03") +
                 repeat(std::string("0B ") + kMinusTwo + " ", 3));
        EXPECT_EQ(s.servo(9, nullptr, 3), 0);
        s.expect(head("05", "02 00 00 00", "00") + kVectorArgument + bytes("02 00"));
        EXPECT_EQ(s.servo(0, kVector, 0), 0) << "whatever the flag";
    }
    ServoSession s(2);
    s.expect(one_value("01 00 00 00"));
    EXPECT_EQ(s.servo(0, kVector, 1), 0);
    s.expect(head("06", "02 00 00 00", "01") + kVectorArgument + bytes("13 01 01 0B") +
             bytes(kMinusTwo));
    EXPECT_EQ(s.servo(1, kVector, 1), 0);
}

TEST(Servo, CountsToAHundredThousandAndStartsAgainAtOne) {
    ServoSession s(2);
    write_u32(s.dataspace() + kServoCounterOffset, 99999);
    s.expect(one_value("A0 86 01 00"));
    EXPECT_EQ(s.servo(0, nullptr, 1), 0);
    s.expect(one_value("01 00 00 00"));
    EXPECT_EQ(s.servo(0, nullptr, 1), 0);
}

TEST(Servo, NeedsARawEndpointForAnyOtherVersion) {
    for (const uint32_t version : {0U, 3U, 0x10003U, 0x30003U}) {
        ServoSession s(version);
        OutputCapture output;
        EXPECT_EQ(s.servo(0, nullptr, 1), 302) << version;
        EXPECT_EQ(output.text(), "cvexo_servoj socket_raw_applysendbuf error -100\n");
        EXPECT_EQ(s.member(kServoCounterOffset), 0U) << "no number is used";
        EXPECT_THAT(s.log(), HasSubstr(" cvexo_servoj socket_raw_applysendbuf error -100\n"));
        EXPECT_EQ(vexo_destroy(s.handle), 0);
    }
}

TEST(Servo, RefusesAnUnknownHandleAndUnlocks) {
    OutputCapture output;
    log_init();
    EXPECT_EQ(cvexo_servoj(12345, 0, 0, 0, nullptr, 0, nullptr), -1);
    EXPECT_EQ(output.text(), "");
    EXPECT_EQ(cvexo_servoj(0, 0, 0, 0, nullptr, 0, nullptr), -1);
    EXPECT_THAT(Session::finished_log("sys_log"),
                HasSubstr(" cvexo_servoj Error: vexoHandle is NULL\n"));
    ASSERT_EQ(pthread_mutex_trylock(&base_servoj_mutex), 0);
    pthread_mutex_unlock(&base_servoj_mutex);
}
