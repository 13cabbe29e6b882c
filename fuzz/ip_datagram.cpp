// Without this a datagram of the IP mode could be read outside its bytes, or be taken for ours.
#include <cstring>

#include "fuzz/input.h"
#include "wire/frame.h"

using namespace fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Span datagram(data, size);
    const vexo::wire::OpenedIpDatagram opened = vexo::wire::open_ip_datagram(datagram);
    const size_t header = vexo::wire::ip_header_length(datagram);
    const bool ours = size >= header + 8 && data[header] == 0xA6 && data[header + 4] == 0xC8 &&
                      data[header + 5] == 0xB7;
    check(ours == (opened.fault == vexo::wire::FrameFault::none), "ours is what says so");
    if (ours) {
        check(opened.payload.data() == data + header + 8 &&
                  opened.payload.data() + opened.payload.size() == data + size,
              "the payload ends with the datagram");
        uint32_t source = 0;
        std::memcpy(&source, data + 12, size >= 16 ? sizeof source : 0);
        check(opened.source == source, "the sender is known");
    }
    return 0;
}
