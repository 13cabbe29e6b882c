// The replies to output and input recipes, and the rows that ask for them.
#include <vector>

#include "client/vexo.h"
#include "fuzz/controller.h"

using namespace fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const uint16_t count = input.u16();
    std::vector<uint32_t> rows;
    for (size_t i = 0; i < count && i < size / sizeof(uint32_t); ++i) {
        rows.push_back(input.u32());
    }
    const auto row_count = static_cast<int32_t>(rows.size());
    const uint16_t delivery = input.u16();
    const Span reply = input.rest();
    vexo::Dataspace& d = dataspace();
    d.output_count = vexo::kOutputRows;
    d.input_count = vexo::kInputRows;
    for (size_t i = 0; i < vexo::kOutputRows; ++i) {
        d.outputs[i].type = static_cast<uint8_t>(i);
    }

    uint32_t recipe = ~0u;
    answer(delivery, reply);
    int32_t result = vexo_output_setup_send(handle(), row_count, rows.data(), 0, &recipe);
    check(d.output_length <= VEXO_MAX_OUTPUT_PACKAGE, "a package has its limit");
    check(result == 0 ? recipe == d.response[7] : recipe == ~0u,
          "an output recipe's number is taken from its reply");

    recipe = ~0u;
    answer(delivery, reply);
    result = vexo_input_setup_send(handle(), row_count, reinterpret_cast<int32_t*>(rows.data()),
                                   &recipe);
    check(result == 0 ? recipe == d.response[7] : recipe == ~0u,
          "an input recipe's number is taken from its reply");
    return 0;
}
