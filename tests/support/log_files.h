// The files that the log writes, as a test reads them.
#ifndef TESTS_SUPPORT_LOG_FILES_H
#define TESTS_SUPPORT_LOG_FILES_H

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <algorithm>
#include <filesystem>
#include <future>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "client/vexo.h"
#include "log/log.h"
#include "tests/support/output_capture.h"
#include "tests/support/process.h"
#include "tests/support/system_call.h"

namespace test {

inline constexpr char kGeneralFile[] = "vexo_sys_log_log";
inline constexpr char kGeneralBanner[] = "\n\n===== VEXO LOG (sys_log) =====\n\n";

inline std::string file_of(std::string address) {
    std::replace(address.begin(), address.end(), '.', '_');
    return "vexo_" + address + "_log";
}

inline std::string banner_of(const std::string& key) {
    return "\n\n===== VEXO LOG (" + key + ") =====\n\n";
}

// A line of the general file without its time: "Function:f Handle:0 x".
inline std::string without_time(const std::string& line) {
    const size_t time = line.find("Time:");
    const size_t length = std::string("Time:2024-01-31 08:15:02.000123 ").size();
    return time == std::string::npos ? line : std::string(line).erase(time, length);
}

// The lines behind the banner, without their times.
inline std::vector<std::string> lines_after(const std::string& banner, const std::string& text) {
    EXPECT_EQ(text.substr(0, banner.size()), banner);
    std::istringstream in(text.substr(std::min(banner.size(), text.size())));
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
        lines.push_back(without_time(line));
    }
    return lines;
}

// Ends the log and reads the general file.
inline std::vector<std::string> finished_general_lines() {
    log_cleanup();
    return lines_after(kGeneralBanner, read_file(kGeneralFile));
}

inline std::set<std::string> files_here() {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(".")) {
        names.insert(entry.path().filename());
    }
    return names;
}

// What `action` prints. Failed expectations inside it would be taken for that.
template <typename Action>
std::string printed_by(Action action) {
    OutputCapture output;
    action();
    return output.text();
}

// Made before the log starts, so that what the making logs is forgotten.
inline uint32_t make_handle(const std::string& address) {
    uint32_t handle = 0;
    int result = -1;
    printed_by([&] { result = vexo_create_handle(&handle, address.c_str()); });
    EXPECT_EQ(result, 0);
    return handle;
}

// A general file that the writer cannot open until somebody reads it. Made before the first line.
class BlockedWriter {
public:
    BlockedWriter() { EXPECT_EQ(mkfifo(kGeneralFile, 0600), 0); }

    // Logs a line and waits until the writer is stuck with it.
    void block(const char* text) {
        log_write(0, "f", text);
        ASSERT_TRUE(wait_until_blocked_in({SYS_openat}));
    }

    // Lets the writer go on, ends the log, and returns the lines.
    std::vector<std::string> finished_lines() {
        auto text = std::async(std::launch::async, [] { return read_file(kGeneralFile); });
        log_cleanup();
        return lines_after(kGeneralBanner, text.get());
    }
};

}  // namespace test

#endif
