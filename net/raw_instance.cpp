#include "net/raw_instance.h"

#include <algorithm>

namespace vexo {

uint8_t sockrawuse[kRawInstanceCount];
RawInstance sockrawinst[kRawInstanceCount];
std::atomic<uint32_t> sockrawsenderrcnt;

int claim_raw_instance() {
    uint8_t* const row = std::find(std::begin(sockrawuse), std::end(sockrawuse), 0);
    if (row == std::end(sockrawuse)) {
        return -1;
    }
    *row = 1;
    return static_cast<int>(row - sockrawuse);
}

RawInstance* find_raw_instance(int instance) {
    if (instance < 0 || instance >= kRawInstanceCount || sockrawuse[instance] != 1) {
        return nullptr;
    }
    return &sockrawinst[instance];
}

}  // namespace vexo
