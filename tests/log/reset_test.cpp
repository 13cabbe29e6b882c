// Without this a file could grow beyond 500,000 lines, or lose more than it must when it is full.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <unistd.h>

#include "tests/support/log_files.h"

using namespace test;
using ::testing::ElementsAre;

namespace {

constexpr off_t kLines = 500000;
constexpr off_t kBurst = 30;  // fits into the queue
constexpr off_t kLineLength = sizeof "Function:f Handle:0 Time:2024-01-31 08:15:02.000123 x\n" - 1;

// Fills the general file, in bursts that the queue can take.
void write_half_a_million_lines() {
    log_write(0, "f", "x");
    ASSERT_TRUE(wait_until([] { return read_file(kGeneralFile).ends_with(" x\n"); }));
    const int file = open(kGeneralFile, O_RDONLY | O_CLOEXEC);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(5);
    for (off_t lines = 1; lines < kLines;) {
        for (off_t i = 0; i < kBurst && lines < kLines; ++i, ++lines) {
            log_write(0, "f", "x");
        }
        const off_t size = static_cast<off_t>(sizeof kGeneralBanner - 1) + lines * kLineLength;
        struct stat status {};
        while (fstat(file, &status) == 0 && status.st_size < size) {
            ASSERT_LT(std::chrono::steady_clock::now(), deadline);
            sched_yield();
        }
        ASSERT_EQ(status.st_size, size);
    }
    close(file);
}

}  // namespace

TEST(FullLogFile, IsTruncatedForTheNextLine) {
    log_init();
    write_half_a_million_lines();
    log_write(0, "f", "y");
    log_write(0, "f", "z");
    log_cleanup();
    EXPECT_THAT(
        lines_after("\n\n===== VEXO LOG (sys_log RESET) =====\n\n", read_file(kGeneralFile)),
        ElementsAre("Function:f Handle:0 y", "Function:f Handle:0 z"));
}
