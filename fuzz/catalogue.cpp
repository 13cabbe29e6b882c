// Without this a catalogue could overrun its lists, or a name lead to a row of another name.
#include <cstring>
#include <string>

#include "client/name_index.h"
#include "client/vexo.h"
#include "fuzz/controller.h"

using namespace fuzz;

namespace {

template <typename Entry>
void check_index(int32_t (*find)(uint32_t, const char*), const Entry* entries, uint32_t count,
                 uint32_t capacity) {
    check(count <= capacity, "a list stays within its capacity");
    for (uint32_t i = 0; i < count; ++i) {
        const std::string name(entries[i].name, strnlen(entries[i].name, sizeof entries[i].name));
        const int32_t row = find(handle(), name.c_str());
        check(name.empty() ? row == -1 : row >= 0 && static_cast<uint32_t>(row) < count,
              "a name leads to a row of the catalogue");
        check(name.empty() ||
                  std::memcmp(entries[row].name, entries[i].name, sizeof entries[i].name) == 0 ||
                  name == std::string(entries[row].name,
                                      strnlen(entries[row].name, sizeof entries[row].name)),
              "and that row has the name");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    vexo::Dataspace& d = dataspace();
    d.page_size = (input.u8() & 1) != 0 ? VEXO_PAGE_ROWS : 10;
    std::memset(d.outputs, 0, sizeof d.outputs + sizeof d.inputs + sizeof d.methods);
    reset_all_hashes(handle());
    answer_each(input.rest());
    if (vexo_all_recipe_get(handle()) == 0) {
        check_index(find_output_index, d.outputs, d.output_count, vexo::kOutputRows);
        check_index(find_input_index, d.inputs, d.input_count, vexo::kInputRows);
        check_index(find_method_index, d.methods, d.method_count, vexo::kMethodRows);
    }
    return 0;
}
