#include "tests/raw_path/raw_path.h"

#include <algorithm>
#include <utility>

namespace test {

namespace {

void put_checksum(Bytes& frame) {
    const uint16_t sum = reference_checksum(Bytes(frame.begin() + 14, frame.end()));
    frame[16] = static_cast<uint8_t>(sum >> 8);
    frame[17] = static_cast<uint8_t>(sum);
}

}  // namespace

void RawPath::SetUp() {
    RawLink::SetUp();
    if (!IsSkipped()) {
        robot_ = Port::ethernet("robot0");
    }
}

void RawPath::TearDown() {
    end_receive_thread();
    RawLink::TearDown();
}

void end_receive_thread() {
    static bool ended = false;
    if (recv_thread_init_ok == 1 && !std::exchange(ended, true)) {
        vexo_thread_destroy();
        pthread_join(th_receive, nullptr);
    }
}

Bytes package(const Bytes& values) {
    const size_t size = 4 + values.size();
    return Bytes{static_cast<uint8_t>(size), static_cast<uint8_t>(size >> 8), 'U', 1} + values;
}

Bytes from_foreign_station(Bytes frame) {
    frame[11] ^= 0xF0;
    return frame;
}

Bytes client_frame(uint8_t code, uint8_t sequence, const Bytes& payload) {
    Bytes frame = bytes("02 00 00 00 00 0B 02 00 00 00 00 0A C8 15 A6") + Bytes{code} +
                  bytes("00 00 C8 B7") + Bytes{sequence, 0} +
                  Bytes{static_cast<uint8_t>(payload.size()),
                        static_cast<uint8_t>(payload.size() >> 8), 0, 0} +
                  payload;
    put_checksum(frame);
    return frame;
}

void RawSession::negotiate_raw(uint32_t nack, const char* interface) {
    ASSERT_EQ(vexo_create(handle, address.c_str(), interface, 3, nullptr), 0);
    const Bytes flags{static_cast<uint8_t>(nack != 0 ? 3 : 1)};
    io.expect(bytes("11 00 56 03 00") + flags + bytes("00 00 00 00 00 02 00 00 00 00 0A"),
              bytes("0D 00 56 00 00 00 00 02 00 00 00 00 0B"));
    ASSERT_EQ(vexo_protocol_version_request(handle, 3, nack), 0);
    write_u32(dataspace() + kMethodsOffset + 104 + 100, 0x0201);
}

Bytes RawSession::latest() const {
    Bytes buffer(2048);
    EXPECT_EQ(vexo_ouput_data_receive(handle, 0, buffer.data(), 2048), 0);
    buffer.resize(std::min<size_t>(buffer.size(), static_cast<size_t>(buffer[0] | buffer[1] << 8)));
    return buffer;
}

bool RawSession::shows(const Bytes& expected) const {
    return wait_until([&] { return latest() == expected; });
}

Bytes RawSession::bytes_at(size_t offset, size_t count) const {
    const uint8_t* const begin = dataspace() + offset;
    return Bytes(begin, begin + count);
}

int32_t RawSession::servo() const {
    const double values[] = {1.0, -2.0};
    return cvexo_servoj(handle, 1, 0.5, 0, nullptr, 2, values);
}

}  // namespace test
