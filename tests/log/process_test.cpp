// Without this a child could write to its parent's log, or hang in it, and a log without a thread
// grow.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "tests/support/log_files.h"

using namespace test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

// Logs on several threads while it lives.
class Loggers {
public:
    ~Loggers() {
        stop_ = true;
        for (std::thread& thread : threads_) {
            thread.join();
        }
    }

private:
    void log() const {
        while (!stop_) {
            log_write(0, "f", "parent");
        }
    }

    std::atomic<bool> stop_{false};
    std::thread threads_[3] = {std::thread([this] { log(); }), std::thread([this] { log(); }),
                               std::thread([this] { log(); })};
};

// In a child: 0 when its log begins empty and not started, takes lines and has a file of its own.
int use_log(int number) {
    alarm(20);
    const std::string directory = std::to_string(number);
    if (log_init_ok != 0 || mkdir(directory.c_str(), 0700) != 0 || chdir(directory.c_str()) != 0) {
        return 1;
    }
    log_write(0, "f", "forgotten");
    log_init();
    log_write(0, "f", "child");
    return finished_general_lines() == std::vector<std::string>{"Function:f Handle:0 child"} ? 0
                                                                                             : 2;
}

// New threads would need more memory than an address space has.
class NoNewThreads {
public:
    NoNewThreads() {
        pthread_getattr_default_np(&before_);
        pthread_attr_t endless = before_;
        EXPECT_EQ(pthread_attr_setstacksize(&endless, size_t{1} << 47), 0);
        EXPECT_EQ(pthread_setattr_default_np(&endless), 0);
    }
    ~NoNewThreads() { pthread_setattr_default_np(&before_); }

private:
    pthread_attr_t before_;
};

}  // namespace

TEST(LogInAChild, BeginsAnewWhateverTheParentsThreadsDo) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread sanitizer ends a child that starts a thread";
#endif
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the address sanitizer's own locks do not outlast a fork beside other threads";
#endif
    log_init();
    {
        const Loggers loggers;
        for (int number = 0; number < 40; ++number) {
            ASSERT_EQ(in_child([number] { return use_log(number); }), 0) << number;
        }
        ASSERT_TRUE(wait_until([] { return read_file(kGeneralFile).ends_with("parent\n"); }));
        EXPECT_EQ(in_child([] { return static_cast<int>(open_descriptors().size()); }),
                  static_cast<int>(open_descriptors().size()) - 1)
            << "the parent's file stays the parent's";
    }
    for (const std::string& line : finished_general_lines()) {
        ASSERT_EQ(line, "Function:f Handle:0 parent");
    }
}

TEST(LogWithoutAWriter, DropsItsLinesAndCanBeStartedLater) {
    {
        const NoNewThreads refused;
        log_init();
        EXPECT_EQ(log_init_ok, 1);
        for (int i = 0; i < 100; ++i) {
            log_write(0, "f", "dropped");
        }
        log_cleanup();
        EXPECT_EQ(log_init_ok, 0);
        EXPECT_THAT(files_here(), IsEmpty());
    }
    log_init();
    log_write(0, "f", "x");
    EXPECT_THAT(finished_general_lines(), ElementsAre("Function:f Handle:0 x"));
}
