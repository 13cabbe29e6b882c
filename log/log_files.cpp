#include "log/log_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "base/owned_descriptor.h"

namespace vexo {

namespace {

constexpr size_t kNameSize = 128;

// Every dot becomes '_', that of the ending too: tools in the field look for "vexo_10_0_0_5_log".
int open_truncated(const char* key) {
    char name[kNameSize];
    std::snprintf(name, sizeof name, "vexo_%s.log", key);
    for (char* c = name; *c != '\0'; ++c) {
        if (*c == '.') {
            *c = '_';
        }
    }
    return OwnedDescriptor(open(name, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)).release();
}

// What a full disk does not take is lost.
void write_text(int file, const char* text) {
    size_t left = std::strlen(text);
    while (left > 0) {
        const ssize_t written = write(file, text, left);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return;
        }
        text += written;
        left -= static_cast<size_t>(written);
    }
}

void write_banner(int file, const char* key, const char* suffix) {
    char banner[kNameSize];
    std::snprintf(banner, sizeof banner, "\n\n===== VEXO LOG (%s%s) =====\n\n", key, suffix);
    write_text(file, banner);
}

}  // namespace

void LogFiles::write(const char* key, const char* line) {
    Row* row = find(key);
    if (row == nullptr) {
        row = add(key);
    }
    if (row == nullptr || row->file < 0) {
        return;
    }
    if (row->lines >= kLinesPerFile) {
        reset(*row);
        if (row->file < 0) {
            return;
        }
    }
    write_text(row->file, line);
    ++row->lines;
}

void LogFiles::close_all() {
    for (int i = 0; i < count_; ++i) {
        if (rows_[i].file >= 0) {
            close(rows_[i].file);
        }
        rows_[i] = {};
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

LogFiles::Row* LogFiles::add(const char* key) {
    if (count_ == kRows) {
        return nullptr;
    }
    const int file = open_truncated(key);
    if (file < 0) {
        return nullptr;
    }
    write_banner(file, key, "");
    Row& row = rows_[count_];
    std::strncpy(row.key, key, sizeof row.key - 1);
    row.file = file;
    ++count_;
    return &row;
}

void LogFiles::reset(Row& row) {
    close(std::exchange(row.file, -1));
    row.file = open_truncated(row.key);
    if (row.file >= 0) {
        write_banner(row.file, row.key, " RESET");
        row.lines = 0;
    }
}

}  // namespace vexo
