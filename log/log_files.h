// The files of the log, one per key. Used by the writer thread alone. A line goes to its file in
// one write: a stream of the C library would only be emptied each time, and an application that
// flushes all its streams would reach it.
#ifndef LOG_LOG_FILES_H
#define LOG_LOG_FILES_H

#include <atomic>

#include "log/log_key.h"

namespace vexo {

class LogFiles {
public:
    // Appends a line to the file of `key`. The line is lost when the file cannot be opened or all
    // rows are taken by other keys.
    void write(const char* key, const char* line);
    // Closes all files and forgets their keys, so that the next line of a key truncates its file.
    void close_all();

private:
    static constexpr int kRows = 10;  // one less than ten handles and the general log ask for
    static constexpr int kLinesPerFile = 500000;

    struct Row {
        char key[kLogKeySize];
        int file;   // -1 after a failed reset: the key's later lines are lost
        int lines;  // since the file was opened or reset
    };

    Row* find(const char* key);
    Row* add(const char* key);
    static void reset(Row& row);

    Row rows_[kRows] = {};
    // Counts rows that are whole: a child of fork may close all of them at any moment.
    std::atomic<int> count_ = 0;
};

}  // namespace vexo

#endif
