// Without this lines could be lost, mixed, or make their callers wait, or the writer not start and
// end.
#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

#include "net/exchange_socket.h"
#include "tests/support/log_files.h"
#include "tests/support/sanitizers.h"

using namespace test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

namespace {

std::string line_of(const std::string& text) {
    return "Function:f Handle:0 " + text;
}

void log_numbers(int count) {
    for (int i = 0; i < count; ++i) {
        log_write(0, "f", std::to_string(i).c_str());
    }
}

// Each thread logs numbered texts that name it again and again, so that a mixture shows.
std::string text_of(int thread, int number) {
    const std::string one = std::to_string(thread) + "-" + std::to_string(number);
    std::string text = one;
    while (text.size() < 900) {
        text += " " + one;
    }
    return text;
}

}  // namespace

TEST(LogQueue, Holds31LinesWhileTheWriterIsBlockedAndMakesNoCallerWait) {
    BlockedWriter writer;
    log_init();
    writer.block("taken");
    const auto start = std::chrono::steady_clock::now();
    log_numbers(1000);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    std::vector<std::string> expected = {line_of("taken")};
    for (int i = 0; i < 31; ++i) {
        expected.push_back(line_of(std::to_string(i)));
    }
    EXPECT_EQ(writer.finished_lines(), expected);
}

// The library's own reports share log_string, but not their lines.
TEST(LogQueue, TakesReportsOfManyThreadsWhole) {
    log_init();
    const std::string printed = printed_by([] {
        std::vector<std::thread> all;
        for (int thread = 0; thread < 8; ++thread) {
            all.emplace_back([thread] {
                for (int number = 0; number < 500; ++number) {
                    socket_connect(text_of(thread, number).c_str(), 2295);
                }
            });
        }
        for (std::thread& thread : all) {
            thread.join();
        }
    });
    std::vector<std::string> lines = finished_general_lines();
    EXPECT_GE(lines.size(), 31u);
    const std::string start = "Function:socket_connect Handle:0 Invalid address ";
    for (std::string& line : lines) {
        ASSERT_THAT(line, StartsWith(start));
        line = line.substr(start.size(), line.rfind(" - ") - start.size());
        int thread = -1;
        int number = -1;
        ASSERT_EQ(std::sscanf(line.c_str(), "%d-%d", &thread, &number), 2) << line;
        ASSERT_EQ(line, text_of(thread, number));
    }
    EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 8 * 500);
}

// Printing is where a thread that reports can be cancelled.
TEST(Report, LeavesStandardOutputToOthersWhenItsThreadIsCancelled) {
    if (test::kCancelledFramesStay) {
        GTEST_SKIP() << "the address sanitizer cannot follow a cancelled thread";
    }
    const std::string printed = printed_by([] {
        setvbuf(stdout, nullptr, _IONBF, 0);
        for (int round = 0; round < 100; ++round) {
            std::atomic<int> calls{0};
            pthread_t thread{};
            ASSERT_EQ(pthread_create(
                          &thread, nullptr,
                          [](void* count) -> void* {
                              for (;; ++*static_cast<std::atomic<int>*>(count)) {
                                  socket_connect("nowhere", 0);
                              }
                          },
                          &calls),
                      0);
            ASSERT_TRUE(wait_until([&] { return calls > round; }));
            pthread_cancel(thread);
            pthread_join(thread, nullptr);
            ASSERT_EQ(ftrylockfile(stdout), 0);
            funlockfile(stdout);
        }
    });
    EXPECT_TRUE(printed.ends_with(")\n")) << "a line is printed whole";
}

TEST(LogThatIsNotStarted, MakesNoFilesAndForgetsItsLines) {
    const auto threads_before = thread_count();
    OutputCapture errors(STDERR_FILENO);
    log_numbers(1000);
    EXPECT_EQ(thread_count(), threads_before);
    log_cleanup();
    log_cleanup();
    EXPECT_EQ(errors.text(), "");
    EXPECT_THAT(files_here(), IsEmpty());

    log_init();
    log_write(0, "f", "counts");
    EXPECT_THAT(finished_general_lines(), ElementsAre(line_of("counts")));

    log_write(0, "f", "between");
    log_init();
    log_write(0, "f", "counts again");
    EXPECT_THAT(finished_general_lines(), ElementsAre(line_of("counts again")));
}

TEST(LogThread, StartsOnceAndTellsItsEnd) {
    OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(log_init_ok, 0);
    log_init();
    EXPECT_EQ(log_init_ok, 1);
    log_write(0, "f", "before");
    const auto with_writer = thread_count();
    log_init();
    EXPECT_EQ(thread_count(), with_writer);
    EXPECT_EQ(log_init_ok, 1);
    log_write(0, "f", "after");
    EXPECT_EQ(errors.text(), "");
    EXPECT_THAT(finished_general_lines(), ElementsAre(line_of("before"), line_of("after")));
    EXPECT_EQ(log_init_ok, 0);
    EXPECT_EQ(errors.text(), "Log thread exited\n");
    EXPECT_LT(thread_count(), with_writer);
}

TEST(LogThread, SleepsWhileThereIsNothingToWrite) {
    log_init();
    log_write(0, "f", "x");
    ASSERT_TRUE(wait_until([] { return read_file(kGeneralFile).ends_with(" x\n"); }));
    const auto before = cpu_time();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_LT(cpu_time() - before, std::chrono::milliseconds(100));
    log_cleanup();
}
