#include "tests/support/output_capture.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>

namespace test {

OutputCapture::OutputCapture(int descriptor)
    : descriptor_(descriptor), saved_(-1), file_(memfd_create("captured output", MFD_CLOEXEC)) {
    std::fflush(nullptr);
    saved_ = dup(descriptor_);
    dup2(file_, descriptor_);
}

OutputCapture::~OutputCapture() {
    std::fflush(nullptr);
    dup2(saved_, descriptor_);
    close(saved_);
    close(file_);
}

std::string OutputCapture::text() {
    std::fflush(nullptr);
    std::string all;
    char chunk[4096];
    ssize_t got = 0;
    while ((got = pread(file_, chunk, sizeof chunk, static_cast<off_t>(all.size()))) > 0) {
        all.append(chunk, static_cast<size_t>(got));
    }
    return all;
}

}  // namespace test
