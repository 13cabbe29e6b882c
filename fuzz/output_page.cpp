// A catalogue page of output variables.
#include "fuzz/page.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::get_pages<VexoVariablePage>(vexo_output_variables_get, data, size);
    return 0;
}
