// Without this a delay could be too short, or a list of names be judged wrongly.
#include <gtest/gtest.h>

#include <chrono>

#include "log/utilities.h"

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

Clock::duration delay(uint32_t ms) {
    const auto start = Clock::now();
    vexo_delay_ms(ms);
    return Clock::now() - start;
}

}  // namespace

TEST(Delay, LastsAsLongAsAsked) {
    EXPECT_LT(delay(0), 5ms);
    const auto short_delay = delay(30);
    EXPECT_GE(short_delay, 30ms);
    EXPECT_LT(short_delay, 900ms);
    const auto long_delay = delay(1100);
    EXPECT_GE(long_delay, 1100ms);
    EXPECT_LT(long_delay, 5s);
}

TEST(NameList, IsJudgedByItsFirstFault) {
    const struct {
        const char* list;
        int result;
    } cases[] = {
        {"a", 0},         {"a,b", 0},   {"a\t,\n;", 0},
        {"a.b,c_1,d", 0}, {nullptr, 1}, {"", 1},
        {" ", 2},         {"a ", 2},    {" a", 2},
        {"a, b", 2},      {"a ,,b", 2}, {"a,b ", 2},
        {"a, ,b", 2},     {",", 3},     {",a", 3},
        {"a,", 3},        {"a,,b", 3},  {",,a b", 3},
        {"a,,b c", 3},    {", ", 3},    {"\xC3\xA4,\xFF", 0},
    };
    for (const auto& [list, result] : cases) {
        EXPECT_EQ(check_string(reinterpret_cast<const unsigned char*>(list)), result)
            << '"' << (list == nullptr ? "null" : list) << '"';
    }
}
