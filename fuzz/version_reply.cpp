// The reply to the negotiation of the protocol version, over TCP and for the raw path.
#include <cstring>

#include "client/vexo.h"
#include "fuzz/controller.h"

using namespace fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const uint16_t delivery = input.u16();
    const Span reply = input.rest();
    for (const int64_t mode : {1, 2, 3}) {
        answer(delivery, reply);
        const int32_t result = vexo_protocol_version_request(handle(), mode, 0);
        check_result(result);
        if (mode == 3 && result != VEXO_ERROR_TRANSPORT) {
            check(std::memcmp(dataspace().controller_mac, dataspace().response + 7, 6) == 0,
                  "the controller's address is the one of the reply");
        }
    }
    return 0;
}
