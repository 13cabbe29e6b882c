// Without this a line could go to a wrong file, or a failing file take others with it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include "tests/support/log_files.h"

using namespace test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

// Waits until the writer has handled all lines before this one.
void wait_for_writer(uint32_t marker_handle, const std::string& marker_file) {
    log_write(marker_handle, "f", "marker");
    ASSERT_TRUE(
        wait_until([&] { return read_file(marker_file).find("marker") != std::string::npos; }));
}

std::vector<uint32_t> ten_handles() {
    std::vector<uint32_t> handles;
    for (int i = 1; i <= 10; ++i) {
        handles.push_back(make_handle("10.1.0." + std::to_string(i)));
    }
    return handles;
}

}  // namespace

#define SIXTY_THREE_CHARACTERS "robot-cell-0123456789-0123456789-0123456789-0123456789-01234567"
static_assert(sizeof SIXTY_THREE_CHARACTERS == 63 + 1);

TEST(LogFile, IsNamedAfterTheAddress) {
    struct Case {
        const char* address;
        const char* key;
        const char* file;
    };
    const Case cases[] = {{"192.168.1.10", "192.168.1.10", "vexo_192_168_1_10_log"},
                          {"robot", "robot", "vexo_robot_log"},
                          {"sys_log", "sys_log", "vexo_sys_log_log"},
                          {"", "", "vexo__log"},
                          {SIXTY_THREE_CHARACTERS ".and.more", SIXTY_THREE_CHARACTERS,
                           "vexo_" SIXTY_THREE_CHARACTERS "_log"}};
    for (const Case& c : cases) {
        const uint32_t handle = make_handle(c.address);
        log_init();
        log_write(handle, "some_call", "moved 5% of %s");
        log_write(handle, "f", "the next");
        log_cleanup();
        EXPECT_THAT(files_here(), ElementsAre(c.file));
        EXPECT_THAT(
            lines_after(banner_of(c.key), read_file(c.file)),
            ElementsAre("Function:some_call Handle:" + std::to_string(handle) + " moved 5% of %s",
                        "Function:f Handle:" + std::to_string(handle) + " the next"));
        std::filesystem::remove(c.file);
    }
}

TEST(LogFile, IsRefusedToAnEleventhKeyUntilTheLogStartsAgain) {
    std::vector<uint32_t> handles = ten_handles();
    for (const bool general_first : {false, true}) {
        std::vector<uint32_t> order = handles;
        order.insert(general_first ? order.begin() : order.end(), 0);
        std::set<std::string> expected;
        for (int i = 1; i <= (general_first ? 9 : 10); ++i) {
            expected.insert(file_of("10.1.0." + std::to_string(i)));
        }
        if (general_first) {
            expected.insert(kGeneralFile);
        }

        log_init();
        for (const uint32_t handle : order) {
            log_write(handle, "f", "x");
        }
        log_write(order.back(), "f", "still without a file");
        log_write(order.front(), "f", "goes on");
        log_cleanup();
        EXPECT_EQ(files_here(), expected);
        const std::string front = general_first ? kGeneralFile : file_of("10.1.0.1");
        EXPECT_TRUE(read_file(front).ends_with(" goes on\n"));
        for (const std::string& file : expected) {
            std::filesystem::remove(file);
        }
    }
}

TEST(LogFile, ThatCannotBeOpenedIsTriedAgainWithTheNextLine) {
    const uint32_t marker = make_handle("10.0.0.5");
    std::filesystem::create_directory(kGeneralFile);
    log_init();
    log_write(0, "f", "lost");
    wait_for_writer(marker, "vexo_10_0_0_5_log");
    std::filesystem::remove(kGeneralFile);
    log_write(0, "f", "kept");
    EXPECT_THAT(finished_general_lines(), ElementsAre("Function:f Handle:0 kept"));
}

TEST(LogFile, ThatIsFullLosesItsLinesAndNothingElse) {
    const uint32_t other = make_handle("10.0.0.6");
    std::filesystem::create_symlink("/dev/full", kGeneralFile);
    log_init();
    log_write(0, "f", "lost");
    wait_for_writer(other, "vexo_10_0_0_6_log");
    log_cleanup();
    EXPECT_EQ(log_init_ok, 0);
}

TEST(LogFile, IsNeitherInheritedByProgramsNorAStandardStream) {
    close(STDIN_FILENO);
    log_init();
    const std::set<int> before = open_descriptors();
    log_write(0, "f", "x");
    ASSERT_TRUE(wait_until([] { return read_file(kGeneralFile).ends_with(" x\n"); }));
    int found = 0;
    for (const int fd : open_descriptors()) {
        if (!before.contains(fd)) {
            ++found;
            EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
            EXPECT_GT(fd, STDERR_FILENO);
        }
    }
    EXPECT_EQ(found, 1);
    log_cleanup();
    EXPECT_EQ(open_descriptors(), before);
}
