// The byte stream of a receive connection: whatever the cuts, the same packages come out of it, and
// they are those that a plain reading of the whole stream finds.
#include <cstring>
#include <memory>
#include <vector>

#include "client/output_unpacker.h"
#include "fuzz/input.h"

using namespace fuzz;

namespace {

using Packages = std::vector<std::vector<uint8_t>>;

Packages unpack(Span stream, size_t length, size_t piece) {
    const auto unpacker = std::make_unique<vexo::OutputUnpacker>();
    Packages packages;
    while (!stream.empty()) {
        const size_t count = std::min({unpacker->wanted(length), piece, stream.size()});
        if (count == 0) {
            check(length < sizeof(uint16_t), "there is always room for more");
            break;
        }
        std::memcpy(unpacker->room(), stream.data(), count);
        unpacker->received(count);
        stream = stream.subspan(count);
        while (const size_t size = unpacker->next(length)) {
            packages.emplace_back(unpacker->package(), unpacker->package() + size);
        }
    }
    return packages;
}

Packages read_whole(Span stream, size_t length) {
    constexpr size_t header = 4;
    constexpr size_t longest = 20480;
    const size_t limit = std::min<size_t>(length, VEXO_MAX_OUTPUT_PACKAGE);
    Packages packages;
    while (limit >= sizeof(uint16_t) && stream.size() >= sizeof(uint16_t)) {
        size_t size = static_cast<size_t>(stream[0] | stream[1] << 8);
        if (size < header || size > longest) {
            size = limit;
        }
        const size_t shown = std::min(size, limit);
        if (shown > stream.size()) {
            break;
        }
        packages.emplace_back(stream.begin(), stream.begin() + static_cast<ptrdiff_t>(shown));
        stream = stream.subspan(std::min(size, stream.size()));
    }
    return packages;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const size_t length = input.u16();
    const size_t piece = 1u + input.u8();
    const Span stream = input.rest();
    const Packages expected = read_whole(stream, length);
    for (const size_t cut : {size_t{1}, piece, stream.size() + 1}) {
        check(unpack(stream, length, cut) == expected, "the cuts of a stream change nothing");
    }
    return 0;
}
