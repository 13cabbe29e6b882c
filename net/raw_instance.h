// The table of fast-path instances.
#ifndef NET_RAW_INSTANCE_H
#define NET_RAW_INSTANCE_H

#include <netinet/in.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>

namespace vexo {

using MacBytes = std::array<uint8_t, 6>;

// A hardware address in one word, so that a setter never shows half of it to a sending thread.
class MacAddress {
public:
    void set(const uint8_t* bytes) {
        uint64_t word = 0;
        std::memcpy(&word, bytes, sizeof(MacBytes));
        word_.store(word, std::memory_order_relaxed);
    }
    MacBytes get() const {
        const uint64_t word = word_.load(std::memory_order_relaxed);
        MacBytes bytes;
        std::memcpy(bytes.data(), &word, bytes.size());
        return bytes;
    }

private:
    std::atomic<uint64_t> word_{0};
};

struct RawInstance {
    int32_t fd;
    uint32_t mode;  // SOCKET_RAW_MODE_*
    uint16_t version;
    uint8_t marker;         // first byte of every message
    uint8_t header_length;  // bytes before the payload of a message sent
    uint16_t sequence;      // of the next message; only the sending thread touches it
    // Where IP mode sends to, in network order; 0 while unknown. Learned by the receiving thread.
    std::atomic<in_addr_t> peer_address;
    uint32_t interface_index;
    MacAddress source;
    MacAddress destination;
};

inline constexpr int kRawInstanceCount = 8;
inline constexpr uint16_t kRawVersion = 1;

extern uint8_t sockrawuse[kRawInstanceCount];  // 1: in use
extern RawInstance sockrawinst[kRawInstanceCount];
extern std::atomic<uint32_t> sockrawsenderrcnt;  // frames that were not sent whole

// Takes the lowest free row. Returns its number, or -1 when all are in use.
int claim_raw_instance();

// The record of an instance in use; null for a bad number.
RawInstance* find_raw_instance(int instance);

}  // namespace vexo

#endif
