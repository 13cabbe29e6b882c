// Without this the cuts of a byte stream could change its packages, or a package put it out of
// step. The packages are those that a plain reading of the whole stream finds.
#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "client/vexo.h"
#include "fuzz/input.h"
#include "wire/package_stream.h"

using namespace fuzz;

namespace {

using Packages = std::vector<std::vector<uint8_t>>;

Packages unpack(Span stream, size_t length, size_t piece) {
    const auto packages = std::make_unique<vexo::wire::PackageStream>();
    Packages shown;
    while (!stream.empty() && length > 0) {
        const auto room = packages->room();
        const size_t count = std::min({room.size(), piece, stream.size()});
        check(count > 0, "there is always room for more");
        std::memcpy(room.data(), stream.data(), count);
        packages->received(count);
        stream = stream.subspan(count);
        for (auto next = packages->next(length); !next.empty(); next = packages->next(length)) {
            shown.emplace_back(next.begin(), next.end());
        }
    }
    return shown;
}

constexpr size_t kHeader = 4;

size_t word_at(Span stream, size_t at) {
    return static_cast<size_t>(stream[at] | stream[at + 1] << 8);
}

size_t end_by_word(Span stream, size_t at, size_t length) {
    const size_t word = word_at(stream, at);
    return word < kHeader || word > 20480 ? length : word;
}

bool header_at(Span stream, size_t at, size_t length) {
    if (stream.size() < at + kHeader || stream[at + 2] != 'U') {
        return false;
    }
    return stream[at + 3] == stream[3] || stream[2] != 'U' || word_at(stream, at) == length;
}

// Where the package behind the first of a stream begins, as far as that can be told.
size_t second_package(Span stream, size_t length) {
    const size_t word = end_by_word(stream, 0, length);
    const size_t near = std::min(word, length);
    const size_t far = std::max(word, length);
    if (near == far || stream.size() < near + kHeader) {
        return near == far ? near : stream.size();
    }
    if (!header_at(stream, near, length)) {
        return far;
    }
    const bool far_in_time =
        far + kHeader <= near + std::min(length, end_by_word(stream, near, length));
    const bool far_better = word_at(stream, near) != length && header_at(stream, far, length) &&
                            word_at(stream, far) == length;
    return far_in_time && far_better ? far : near;
}

Packages read_whole(Span stream, size_t length) {
    Packages packages;
    while (length > 0 && stream.size() >= sizeof(uint16_t)) {
        const size_t shown = std::min(end_by_word(stream, 0, length), length);
        if (shown > stream.size()) {
            break;
        }
        packages.emplace_back(stream.begin(), stream.begin() + static_cast<ptrdiff_t>(shown));
        stream = stream.subspan(std::min(second_package(stream, length), stream.size()));
    }
    return packages;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const size_t length = std::min<size_t>(input.u16(), VEXO_MAX_OUTPUT_PACKAGE);
    const size_t piece = 1u + input.u8();
    const Span stream = input.rest();
    const Packages expected = read_whole(stream, length);
    for (const size_t cut : {size_t{1}, piece, stream.size() + 1}) {
        check(unpack(stream, length, cut) == expected, "the cuts of a stream change nothing");
    }
    return 0;
}
