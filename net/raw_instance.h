// The table of fast-path instances.
#ifndef NET_RAW_INSTANCE_H
#define NET_RAW_INSTANCE_H

#include <netinet/in.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>

#include "base/slot_table.h"
#include "wire/protocol.h"

namespace vexo {

using wire::MacBytes;

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
    uint8_t header_length;  // bytes before the payload of a message sent
    uint16_t sequence;      // of the next message; only the sending thread touches it
    // Where IP mode sends to, in network order; 0 while unknown. Learned by the receiving thread.
    std::atomic<in_addr_t> peer_address;
    uint32_t interface_index;
    MacAddress source;
    MacAddress destination;
};

inline constexpr uint16_t kRawVersion = 1;

inline InUseFlag sockrawuse[8];
inline RawInstance sockrawinst[8];
inline constinit const SlotTable raw_instances(sockrawuse, sockrawinst);

inline std::atomic<uint32_t> sockrawsenderrcnt;  // frames that were not sent whole

}  // namespace vexo

#endif
