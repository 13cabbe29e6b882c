// The version of the library, which the build gives (VEXO_VERSION).
#include <cstring>

#include "client/vexo.h"
#include "log/report.h"

const char* VEXO_SDK_Version = VEXO_VERSION;

using namespace vexo;

int32_t vexo_get_SDK_Version(uint8_t* buffer) {
    if (buffer == nullptr) {
        return -1;
    }
    std::memcpy(buffer, VEXO_SDK_Version, std::strlen(VEXO_SDK_Version));
    record({0, __func__}, "VEXO_SDK_Version: %s", VEXO_SDK_Version);
    return 0;
}
