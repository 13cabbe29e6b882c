// Without this a packet that passes by could lead whoever looks on outside its bytes, or into
// memory without end. Packets come as they are, raw frames also with their checksum put right.
#include <string>
#include <vector>

#include "fuzz/input.h"
#include "tools/capture/decoder.h"
#include "wire/checksum.h"

using namespace fuzz;

namespace {

constexpr size_t kMessage = 14;  // of a raw frame, behind its Ethernet header
constexpr size_t kHeader = 12;
constexpr size_t kChecksum = 2;

constexpr capture::LinkType kLinks[] = {
    capture::LinkType::ethernet, capture::LinkType::cooked,   capture::LinkType::cooked_v2,
    capture::LinkType::ip,       capture::LinkType::loopback,
};

// With a true checksum over all that is there.
std::vector<uint8_t> sealed(Span packet) {
    std::vector<uint8_t> copy(packet.begin(), packet.end());
    if (copy.size() >= kMessage + kHeader) {
        uint8_t* sum_at = copy.data() + kMessage + kChecksum;
        sum_at[0] = sum_at[1] = 0;
        const uint16_t sum =
            vexo::wire::internet_checksum({copy.data() + kMessage, copy.size() - kMessage});
        sum_at[0] = static_cast<uint8_t>(sum);
        sum_at[1] = static_cast<uint8_t>(sum >> 8);
    }
    return copy;
}

capture::Options options_of(uint8_t choice) {
    capture::Options options;
    if ((choice & 1) != 0) {
        options.known.catalogue.outputs = {{"counter", 7, 4}, {"joints", 9, 13}};
        options.known.recipe = {"counter", "joints"};
    }
    if ((choice & 2) != 0) {
        options.counter = "counter";
    }
    return options;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    uint64_t rows = 0;
    capture::Decoder decoder(options_of(input.u8()), [&](const capture::Row& row) {
        ++rows;
        check(row.values.size() == row.layout->bytes(), "a row has the values of its layout");
        check(row.number <= rows, "packages are counted one by one");
        for (const capture::Field& field : row.layout->fields()) {
            check(field.offset < row.values.size(), "each value lies in the row");
        }
    });
    capture::Packet packet;
    while (!input.empty()) {
        const uint8_t kind = input.u8();
        packet.time_ns += input.u8() * int64_t{1'000'000};
        packet.link = kLinks[(kind & 7) % std::size(kLinks)];
        const Span bytes = input.take(input.u16());
        const std::vector<uint8_t> copy =
            (kind & 8) != 0 ? sealed(bytes) : std::vector<uint8_t>(bytes.begin(), bytes.end());
        packet.bytes = copy;
        decoder.take(packet);
    }
    decoder.finish();
    check(decoder.counters().packages == rows, "each package is a row");
    return 0;
}
