// A catalogue page of control methods.
#include "fuzz/page.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::get_pages<VexoMethodPage>(vexo_control_methods_get, data, size);
    return 0;
}
