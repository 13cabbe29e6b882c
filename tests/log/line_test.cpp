// Without this a line could say a wrong time, name or text, or be cut elsewhere.
#include <gmock/gmock.h>
#include <sys/time.h>

#include <cstdlib>
#include <ctime>

#include "tests/support/log_files.h"

using namespace test;
using ::testing::ElementsAre;
using ::testing::StartsWith;

namespace {

using Microseconds = int64_t;

Microseconds now() {
    timeval time{};
    gettimeofday(&time, nullptr);
    return time.tv_sec * 1000000L + time.tv_usec;
}

// The time that a line gives, taken as local.
Microseconds time_of(const std::string& line) {
    tm local{};
    local.tm_isdst = -1;
    const std::string time = line.substr(line.find("Time:") + 5);
    const char* fraction = strptime(time.c_str(), "%Y-%m-%d %H:%M:%S", &local);
    return mktime(&local) * 1000000L + std::strtol(fraction + 1, nullptr, 10);
}

}  // namespace

TEST(LogLine, TellsLocalTimeToTheMicrosecond) {
    setenv("TZ", "XST-05:30", 1);
    log_init();
    Microseconds before[2];
    Microseconds after[2];
    for (int i = 0; i < 2; ++i) {
        before[i] = now();
        log_write(0, "f", "x");
        after[i] = now();
        const time_t second = std::time(nullptr);
        ASSERT_TRUE(wait_until([second] { return std::time(nullptr) != second; }));
    }
    log_cleanup();

    std::string text = read_file(kGeneralFile);
    EXPECT_THAT(text.substr(std::string(kGeneralBanner).size()),
                StartsWith("Function:f Handle:0 Time:20"));
    for (int i = 0; i < 2; ++i) {
        EXPECT_GE(time_of(text), before[i]);
        EXPECT_LE(time_of(text), after[i]);
        text.erase(0, text.find(" x\n") + 3);
    }
}

// The line feed counts: a line of 2047 characters is whole, a longer one loses its end.
TEST(LogLine, IsCutAt2047Characters) {
    const std::string text(1023, 't');
    const std::string rest = "Function: Handle:0 Time:2024-01-31 08:15:02.000123 \n";
    const std::string fitting(2047 - rest.size() - text.size(), 'f');
    const std::string longer = fitting + 'f';
    log_init();
    log_write(0, fitting.c_str(), text.c_str());
    log_write(0, longer.c_str(), text.c_str());
    log_write(0, (longer + longer).c_str(), text.c_str());
    log_write(0, "f", "behind");
    log_cleanup();

    const std::string lines = read_file(kGeneralFile).substr(std::string(kGeneralBanner).size());
    ASSERT_GT(lines.size(), 3 * 2047u);
    EXPECT_EQ(lines.find('\n'), 2046u);
    EXPECT_EQ(lines.find('\n', 2047), lines.size() - 1) << "no line feed in the cut lines";
    EXPECT_EQ(lines.substr(2047 + 2046, 10), "tFunction:");
    EXPECT_EQ(without_time(lines.substr(3 * 2047)), "Function:f Handle:0 behind\n");
}

TEST(LogLine, IsMadeFromNullPointersAndForUnknownHandlesForNoHandleOnly) {
    const uint32_t handle = make_handle("10.0.0.5");
    const uint32_t destroyed = make_handle("10.0.0.6");
    vexo_destroy(destroyed);
    log_init();
    const std::string printed = printed_by([=] {
        log_write(0xFFFFFFFF, "f", "unknown");
        log_write(handle + destroyed, "f", "unknown");
        log_write(destroyed, "f", "destroyed");
        log_write(handle, nullptr, "x");
        log_write(handle, "f", nullptr);
        log_write(0, nullptr, "x");
        log_write(0, "f", nullptr);
    });
    EXPECT_EQ(printed, "");
    EXPECT_THAT(finished_general_lines(),
                ElementsAre("Function:(null) Handle:0 x", "Function:f Handle:0 (null)"));
    EXPECT_THAT(files_here(), ElementsAre(kGeneralFile));
}

TEST(LogString, HoldsTheTextThatTheLibraryLoggedLast) {
    EXPECT_EQ(std::string(log_string, sizeof log_string), std::string(1024, '\0'));
    printed_by([] { get_vexo_dataspace(0); });
    EXPECT_STREQ(log_string, "VexoHandle is null");
    uint8_t version[5];
    vexo_get_SDK_Version(version);
    EXPECT_STREQ(log_string, "VEXO_SDK_Version: 1.1.8");
    log_init();
    log_write(0, "f", "the application's own");
    EXPECT_STREQ(log_string, "VEXO_SDK_Version: 1.1.8");
    // Applications format into it as the library does.
    std::snprintf(log_string, sizeof log_string, "own text %d", 7);
    log_write(0, "f", log_string);
    EXPECT_THAT(finished_general_lines(), ElementsAre("Function:f Handle:0 the application's own",
                                                      "Function:f Handle:0 own text 7"));
}
