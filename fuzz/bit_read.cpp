// The replies to reads of all digital bits, and to a plain command.
#include <cstring>

#include "client/commands.h"
#include "client/vexo.h"
#include "fuzz/controller.h"

using namespace fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const uint16_t delivery = input.u16();
    const Span reply = input.rest();
    for (const auto read : {vexo_set_getalldigitalinputbits, vexo_set_getalldigitaloutputbits}) {
        constexpr uint64_t kUntouched = 0x5A5A5A5A5A5A5A5A;
        uint64_t bits = kUntouched;
        answer(delivery, reply);
        const int32_t result = read(handle(), 0, &bits);
        uint64_t sent = 0;
        std::memcpy(&sent, dataspace().response + 7, sizeof sent);
        const bool accepted = result != VEXO_ERROR_TRANSPORT && dataspace().response[3] == 0;
        check(accepted ? bits == sent : bits == kUntouched || bits == sent,
              "the bits are those of the reply, or left alone");
    }
    answer(delivery, reply);
    check_result(cvexo_resterror(handle(), 0));
    return 0;
}
