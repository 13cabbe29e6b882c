#include "bench/wire.h"

namespace bench {

namespace {

constexpr size_t kLinkHeader = 14;
constexpr size_t kChecksum = 16;

uint16_t checksum(const uint8_t* bytes, size_t size) {
    uint64_t sum = 0;
    for (; size > 1; size -= 2, bytes += 2) {
        sum += load<uint16_t>(bytes);
    }
    sum += size == 1 ? *bytes : 0;
    while (sum >> 16 != 0) {
        sum = (sum >> 16) + (sum & 0xFFFF);
    }
    return static_cast<uint16_t>(~sum);
}

}  // namespace

Bytes message(char letter, const Bytes& payload) {
    Bytes bytes;
    append(bytes, static_cast<uint16_t>(3 + payload.size()));
    append(bytes, letter);
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
}

Bytes set_point(int form) {
    constexpr int kValues = 6;
    Bytes payload;
    append(payload, uint16_t{1});  // the method of row 0
    append(payload, static_cast<uint8_t>(form == 1 ? 4 + kValues : 5));
    append(payload, uint8_t{11});
    append(payload, 0.002);
    append(payload, uint8_t{4});
    append(payload, uint32_t{0});
    append(payload, uint8_t{2});
    append(payload, uint8_t{0});
    const Bytes head = form == 1 ? Bytes{2, kValues} : Bytes{19, 1, kValues, 11};
    payload.insert(payload.end(), head.begin(), head.end());
    for (int i = 0; i < kValues; ++i) {
        if (form == 1) {
            append(payload, uint8_t{11});
        }
        append(payload, 0.1 * i);
    }
    return message('m', payload);
}

Bytes input_package() {
    Bytes payload{1};
    for (int i = 0; i < 6; ++i) {
        append(payload, 0.1 * i);
    }
    return message('U', payload);
}

Bytes output_package(size_t size) {
    Bytes payload(size - 3);
    payload[0] = 1;
    return message('U', payload);
}

Bytes frame(const Mac& to, const Mac& from, uint8_t code, const Bytes& payload) {
    Bytes bytes;
    bytes.insert(bytes.end(), to.begin(), to.end());
    bytes.insert(bytes.end(), from.begin(), from.end());
    for (const int byte : {0xC8, 0x15, 0xA6, int{code}, 0, 0, 0xC8, 0xB7, 0, 0}) {
        bytes.push_back(static_cast<uint8_t>(byte));
    }
    append(bytes, static_cast<uint16_t>(payload.size()));
    append(bytes, uint16_t{0});
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    seal(bytes);
    return bytes;
}

void seal(Bytes& frame) {
    store(&frame[kChecksum], uint16_t{0});
    store(&frame[kChecksum], checksum(&frame[kLinkHeader], frame.size() - kLinkHeader));
}

}  // namespace bench
