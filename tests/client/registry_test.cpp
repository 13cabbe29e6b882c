// Without this handles could be mixed up, outlive their registration, or be more than ten.
#include <sys/resource.h>

#include <algorithm>
#include <cstring>

#include "tests/client/client_fixture.h"

using namespace test;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;

TEST(Registry, MakesTenHandlesAndRefusesTheEleventh) {
    log_init();
    OutputCapture output;
    uint32_t handles[11] = {};
    for (int i = 0; i < 10; ++i) {
        const std::string ip = "10.0.0." + std::to_string(i);
        ASSERT_EQ(vexo_create_handle(&handles[i], ip.c_str()), 0);
        EXPECT_EQ(VexoHandlelist[1 + i], handles[i]);
        EXPECT_EQ(VexoHandleData[i].handle, handles[i]);
        EXPECT_EQ(VexoHandleData[i].ip, ip);
        EXPECT_EQ(VexoHandleData[i].index, i);
        EXPECT_EQ(VexoHandleData[i].dataspace, get_vexo_dataspace(handles[i]));
        EXPECT_EQ(std::count(handles, handles + i, handles[i]), 0) << "a number is taken twice";
    }
    EXPECT_EQ(VexoHandlelist[0], 10U);
    EXPECT_EQ(VexoHandleData_num, 10);
    EXPECT_EQ(vexo_create_handle(&handles[10], "10.0.0.10"), -1);
    EXPECT_THAT(output.text(), HasSubstr("VexoHandleData_num is full\n"));
    EXPECT_THAT(Session::finished_log("sys_log"), HasSubstr(" VexoHandleData_num is full\n"));
}

TEST(Registry, MakesAnotherNumberUntilTheClockHasMovedOn) {
    OutputCapture output;
    uint32_t first = 0;
    ASSERT_EQ(vexo_create_handle(&first, "10.0.0.1"), 0);
    // Takes the number of this millisecond away, which nearly always is the one asked for next.
    for (int tries = 0; tries < 1000; ++tries) {
        VexoHandleData[0].handle = get_time_multiply_sum("10.0.0.1");
        uint32_t second = 0;
        ASSERT_EQ(vexo_create_handle(&second, "10.0.0.1"), 0);
        ASSERT_NE(VexoHandleData[0].handle, second);
        if (output.text().find("VexoHandle Requesting...\n") != std::string::npos) {
            return;
        }
        ASSERT_EQ(vexo_create(second, "bad", nullptr, 1, nullptr), -1);  // takes it back
    }
    FAIL() << "no number was ever taken";
}

TEST(Registry, LogsANewHandleUnderItAndInTheGeneralLog) {
    log_init();
    uint32_t handle = 0;
    ASSERT_EQ(vexo_create_handle(&handle, "10.0.0.1"), 0);
    const std::string text = " \nip:10.0.0.1,VexoHandle:" + std::to_string(handle) + "\n";
    EXPECT_THAT(Session::finished_log("10.0.0.1"), HasSubstr(text));
    EXPECT_THAT(read_file("vexo_sys_log_log"), HasSubstr(text));
}

TEST(Registry, StartsWithAZeroedDataspaceThatHoldsNumberAndAddress) {
    OutputCapture output;
    for (const std::string& address : {std::string("192.168.100.200"), std::string(100, '1')}) {
        uint32_t handle = 0;
        ASSERT_EQ(vexo_create_handle(&handle, address.c_str()), 0);
        const uint8_t* block = get_vexo_dataspace(handle);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(read_u32(block), handle);
        constexpr size_t kIp = VEXO_DATASPACE_SIZE - 32 - 64;
        EXPECT_STREQ(reinterpret_cast<const char*>(block + kIp), address.substr(0, 63).c_str());
        EXPECT_TRUE(std::all_of(block + 4, block + kIp, [](uint8_t byte) { return byte == 0; }));
    }
    EXPECT_EQ(std::string(VexoHandleData[1].ip, 20), std::string(20, '1'));
    EXPECT_EQ(VexoHandleData[1].index, 1);
}

TEST(Registry, SumsDigits) {
    struct {
        int32_t value;
        uint32_t multiplier;
        int32_t sum;
    } const cases[] = {{0, 5, 0}, {-12, 3, 0}, {7, 1, 7}, {127, 10, 100}, {2147483647, 2, 92}};
    for (const auto& c : cases) {
        EXPECT_EQ(sum_digits(c.value, c.multiplier), c.sum) << c.value;
    }
}

TEST(Registry, MakesNumbersFromClockAndAddress) {
    // Two numbers made in the same millisecond differ by the address alone: a multiple of the
    // address's digit sum with a factor of 1 to 10, the same for both.
    for (int tries = 0; tries < 1000; ++tries) {
        const uint32_t plain = get_time_multiply_sum(nullptr);
        const uint32_t nine = get_time_multiply_sum("9.0.0.0");
        const uint32_t again = get_time_multiply_sum(nullptr);
        if (plain == again) {
            EXPECT_EQ((nine - plain) % 9, 0U);
            EXPECT_LE(nine - plain, 90U);
            EXPECT_GE(nine - plain, 9U);
            return;
        }
    }
    FAIL() << "no three numbers came from one millisecond";
}

TEST(Registry, LooksUpHandlesAndReportsHandleZeroAndMalformedAddresses) {
    OutputCapture output;
    log_init();
    uint32_t handle = 0;
    ASSERT_EQ(vexo_create_handle(&handle, "10.0.1"), 0);
    EXPECT_EQ(check_Handle(handle), 1U);
    EXPECT_EQ(check_Handle(handle + 10000), 0U);
    EXPECT_EQ(get_vexo_dataspace(handle + 10000), nullptr);
    EXPECT_EQ(get_vexo_dataspace(0), nullptr);
    EXPECT_EQ(output.text(), "Invalid IP address format\nVexoHandle is null\n");
    const std::string log = Session::finished_log("sys_log");
    EXPECT_THAT(log, HasSubstr("Function:get_time_multiply_sum Handle:0"));
    EXPECT_THAT(log, ContainsRegex("Function:get_vexo_dataspace Handle:0 .* VexoHandle is null\n"));
}

TEST(Registry, TellsItsVersionWithoutATerminator) {
    log_init();
    uint8_t buffer[6] = {9, 9, 9, 9, 9, 9};
    EXPECT_EQ(vexo_get_SDK_Version(nullptr), -1);
    EXPECT_EQ(vexo_get_SDK_Version(buffer), 0);
    EXPECT_EQ(std::memcmp(buffer, "1.1.8\x09", 6), 0);
    EXPECT_STREQ(VEXO_SDK_Version, "1.1.8");
    EXPECT_THAT(Session::finished_log("sys_log"), HasSubstr(" VEXO_SDK_Version: 1.1.8\n"));
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(Registry, KeepsTheListEntryWhenThereIsNoMemory) {
    OutputCapture output;
    const rlimit none{1 << 20, RLIM_INFINITY};
    rlimit before{};
    getrlimit(RLIMIT_AS, &before);
    setrlimit(RLIMIT_AS, &none);
    uint32_t handle = 0;
    const int32_t result = vexo_create_handle(&handle, "10.0.0.1");
    setrlimit(RLIMIT_AS, &before);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(handle, 0U);
    EXPECT_NE(VexoHandlelist[1], 0U);
    EXPECT_EQ(VexoHandlelist[0], 0U);
    EXPECT_EQ(VexoHandleData_num, 0);
    EXPECT_EQ(output.text(), "malloc failed\n");
}
#endif
