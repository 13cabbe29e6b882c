// Datagrams of the fast path in IP mode.
#include <cstring>
#include <vector>

#include "fuzz/raw_link.h"
#include "net/raw_internal.h"
#include "net/raw_socket.h"

using namespace fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const RawLink link(SOCKET_RAW_MODE_IP, vexo::ip::header_length);
    if (!link.send({data, size})) {
        return 0;
    }
    std::vector<uint8_t> buffer(size + 1);
    uint8_t code = 0;
    uint8_t* position = buffer.data();
    const long result = vexo::raw_try_receive(link.number(), &code, &position,
                                              static_cast<unsigned>(buffer.size()));
    check(result >= 0 || result == SOCKET_RAW_MALFORMED, "a datagram is ours, or malformed");
    if (result >= 0) {
        check(position + result == buffer.data() + size, "the payload ends with the datagram");
        in_addr_t source = 0;
        std::memcpy(&source, data + 12, std::min(sizeof source, size - std::min<size_t>(size, 12)));
        check(size < 16 || link.instance().peer_address == source, "its sender is the peer");
    }
    return 0;
}
