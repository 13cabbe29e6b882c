// The reply to the controller version query.
#include <memory>

#include "client/commands.h"
#include "client/vexo.h"
#include "fuzz/controller.h"

using namespace fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const uint16_t delivery = input.u16();
    const auto version = std::make_unique<VexoControllerVersion>();
    version->model = 0xFFFF;
    answer(delivery, input.rest());
    const int32_t result = vexo_get_control_version(handle(), version.get());
    check_result(result);
    const uint8_t* model = dataspace().response + 7;
    check(version->model == (result == 0 ? model[0] | model[1] << 8 : 0xFFFF),
          "the record is filled by an accepted reply, and by no other");
    return 0;
}
