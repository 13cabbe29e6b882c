// What the controller says of itself.
#include "wire/controller_version.h"

#include <cstring>

#include "client/exchange.h"
#include "client/vexo.h"

using namespace vexo;

namespace {

constexpr size_t kTextSize = sizeof(VexoControllerVersion::firmware);

// Cut to its field, which has no final zero when it is full.
void put_text(std::string_view from, char (&text)[kTextSize]) {
    std::memset(text, 0, kTextSize);
    from.copy(text, kTextSize);
}

// How far a field reads as text: a full one runs on into the next, which follows it.
int printed_length(const VexoControllerVersion& version, const char* text) {
    const char* end = version.bootloader + kTextSize;
    return static_cast<int>(strnlen(text, static_cast<size_t>(end - text)));
}

void record_version(uint32_t handle, const VexoControllerVersion& version) {
    record({handle, "vexo_get_control_version"},
           "\ncontroller model:%d\nfirmware_version:%.*s\nhardware_version:%.*s\n"
           "bootloader_version:%.*s",
           version.model, printed_length(version, version.firmware), version.firmware,
           printed_length(version, version.hardware), version.hardware,
           printed_length(version, version.bootloader), version.bootloader);
}

}  // namespace

int32_t vexo_get_control_version(uint32_t handle, VexoControllerVersion* version) {
    const Caller caller{handle, __func__};
    const Registration found = find_or_record_null(caller);
    if (!found) {
        return -1;
    }
    const std::span<uint8_t> room = begin_message(caller, *found, Purpose::request);
    const int32_t result = request(caller, found, wire::controller_version_request(room));
    if (result != 0) {
        return result;
    }
    const wire::ControllerVersion told = wire::controller_version(response(*found));
    version->model = told.model;
    put_text(told.firmware, version->firmware);
    put_text(told.hardware, version->hardware);
    put_text(told.bootloader, version->bootloader);
    record_version(handle, *version);
    record_version(0, *version);
    return 0;
}
