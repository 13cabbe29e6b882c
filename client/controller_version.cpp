// What the controller says of itself.
#include <cstring>

#include "client/exchange.h"
#include "client/registry.h"
#include "client/vexo.h"

using namespace vexo;

namespace {

constexpr size_t kTextSize = sizeof(VexoControllerVersion::firmware);

// A text behind its length byte, cut to its field.
void read_text(MessageReader& reply, char (&text)[kTextSize]) {
    const uint8_t length = reply.u8();
    std::memset(text, 0, kTextSize);
    reply.bytes(text, kTextSize, length);
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
    MessageWriter message = begin_request(*found, 'v');
    const int32_t result = request(caller, found, found->io_socket, message);
    if (result != 0) {
        return result;
    }
    MessageReader reply = reply_payload(*found);
    version->model = reply.u16();
    read_text(reply, version->firmware);
    read_text(reply, version->hardware);
    read_text(reply, version->bootloader);
    record_version(handle, *version);
    record_version(0, *version);
    return 0;
}
