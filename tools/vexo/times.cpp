#include "tools/vexo/times.h"

#include <cstdio>
#include <ctime>

namespace tool {
namespace {

constexpr int64_t kSecond = 1'000'000'000;

}  // namespace

std::string rfc3339(int64_t realtime_ns) {
    const int64_t nanoseconds = (realtime_ns % kSecond + kSecond) % kSecond;
    const time_t seconds = (realtime_ns - nanoseconds) / kSecond;
    tm utc{};
    gmtime_r(&seconds, &utc);
    char date[40];
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &utc);
    char text[64];
    std::snprintf(text, sizeof text, "%s.%09ldZ", date, static_cast<long>(nanoseconds));
    return text;
}

int64_t realtime_now_ns() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec * kSecond + now.tv_nsec;
}

}  // namespace tool
