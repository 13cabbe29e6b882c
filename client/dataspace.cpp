#include "client/dataspace.h"

namespace vexo {

const MethodEntry& method_entry(const Dataspace& dataspace, int32_t row) {
    static constexpr MethodEntry kEmpty{};
    return row >= 0 && row < static_cast<int32_t>(kMethodRows) ? dataspace.methods[row] : kEmpty;
}

}  // namespace vexo
