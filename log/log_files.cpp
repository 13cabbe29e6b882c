#include "log/log_files.h"

#include <cstring>

namespace vexo {

namespace {

constexpr size_t kNameSize = 128;

FILE* open_truncated(const char* key) {
    char name[kNameSize];
    std::snprintf(name, sizeof name, "vexo_%s.log", key);
    for (char* c = name; *c != '\0'; ++c) {
        if (*c == '.') {
            *c = '_';
        }
    }
    return std::fopen(name, "we");
}

void write_banner(FILE* stream, const char* key, const char* suffix) {
    std::fprintf(stream, "\n\n===== VEXO LOG (%s%s) =====\n\n", key, suffix);
    std::fflush(stream);
}

}  // namespace

void LogFiles::write(const char* key, const char* line) {
    Row* row = find(key);
    if (row == nullptr) {
        row = open(key);
    }
    if (row == nullptr || row->stream == nullptr) {
        return;
    }
    if (row->lines >= kLinesPerFile) {
        reset(*row);
        if (row->stream == nullptr) {
            return;
        }
    }
    // Unlocked: no other thread knows the stream.
    fputs_unlocked(line, row->stream);
    fflush_unlocked(row->stream);
    ++row->lines;
}

void LogFiles::close_all() {
    for (Row& row : rows_) {
        if (row.stream != nullptr) {
            std::fclose(row.stream);
        }
        row = {};
    }
    count_ = 0;
}

LogFiles::Row* LogFiles::find(const char* key) {
    for (int i = 0; i < count_; ++i) {
        if (std::strcmp(rows_[i].key, key) == 0) {
            return &rows_[i];
        }
    }
    return nullptr;
}

LogFiles::Row* LogFiles::open(const char* key) {
    if (count_ == kRows) {
        return nullptr;
    }
    FILE* stream = open_truncated(key);
    if (stream == nullptr) {
        return nullptr;
    }
    write_banner(stream, key, "");
    Row& row = rows_[count_++];
    std::strncpy(row.key, key, sizeof row.key - 1);
    row.stream = stream;
    return &row;
}

void LogFiles::reset(Row& row) {
    std::fclose(row.stream);
    row.stream = open_truncated(row.key);
    if (row.stream != nullptr) {
        write_banner(row.stream, row.key, " RESET");
        row.lines = 0;
    }
}

}  // namespace vexo
