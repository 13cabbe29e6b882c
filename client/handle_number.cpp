// Makes the numbers of handles from the clock and the controller's address.
#include <sys/time.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <initializer_list>

#include "client/vexo.h"
#include "log/report.h"

using namespace vexo;

int32_t sum_digits(int32_t value, uint32_t multiplier) {
    uint32_t sum = 0;
    for (; value > 0; value /= 10) {
        sum += static_cast<uint32_t>(value % 10);
    }
    return static_cast<int32_t>(sum * multiplier);
}

uint32_t get_time_multiply_sum(const char* ip) {
    timeval now{};
    gettimeofday(&now, nullptr);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    const int milliseconds = static_cast<int>(now.tv_usec / 1000);

    std::srand(static_cast<unsigned>(milliseconds));
    const uint32_t multiplier = static_cast<uint32_t>(std::rand()) % 10 + 1;

    int32_t sum = 0;
    for (const int value : {local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
                            local.tm_sec, milliseconds}) {
        sum += sum_digits(value, multiplier);
    }
    if (ip != nullptr) {
        int part[4];
        if (std::sscanf(ip, "%d.%d.%d.%d", &part[0], &part[1], &part[2], &part[3]) == 4) {
            for (const int value : part) {
                sum += sum_digits(value, multiplier);
            }
        } else {
            report({0, __func__}, "Invalid IP address format");
        }
    }
    return static_cast<uint32_t>(sum);
}
