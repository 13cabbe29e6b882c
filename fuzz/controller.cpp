#include "fuzz/controller.h"

#include <cstring>

#include "client/vexo.h"
#include "net/exchange_socket.h"

namespace fuzz {

namespace {

constexpr uint16_t kPieceMask = 0x0FFF;
constexpr uint16_t kFails = 0x8000;

struct Reply {
    uint16_t delivery = 0;
    Span bytes;
};

Reply current;
Input waiting(nullptr, 0);

Reply next_reply() {
    const uint16_t delivery = waiting.u16();
    const uint16_t length = waiting.u16();
    return {delivery, waiting.take(length)};
}

uint32_t make_handle() {
    if (std::freopen("/dev/null", "w", stdout) == nullptr) {
        std::abort();
    }
    uint32_t made = 0;
    check(vexo_create_handle(&made, "127.0.0.1") == 0, "a handle can be made");
    return made;
}

}  // namespace

uint32_t handle() {
    static const uint32_t made = make_handle();
    return made;
}

vexo::Dataspace& dataspace() {
    return *reinterpret_cast<vexo::Dataspace*>(get_vexo_dataspace(handle()));
}

void answer(uint16_t delivery, Span reply) {
    current = {};
    waiting = Input(nullptr, 0);
    std::memset(dataspace().response, 0, sizeof dataspace().response);
    current = {delivery, reply};
}

void answer_each(Span replies) {
    answer(0, {});
    waiting = Input(replies.data(), replies.size());
}

void check_result(int32_t result) {
    const uint8_t status = dataspace().response[3];
    check(result == VEXO_ERROR_TRANSPORT || result == status, "the result is the status or 302");
}

}  // namespace fuzz

using namespace fuzz;

extern "C" int __wrap_socket_send(int, const void* data, unsigned length) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    check(length >= 3 && (bytes[0] | bytes[1] << 8) == static_cast<int>(length),
          "a request's length word says how long it is");
    if (!waiting.empty()) {
        current = next_reply();
    }
    return static_cast<int>(length);
}

extern "C" int __wrap_socket_recv(int, void* buffer, unsigned capacity, int) {
    const auto* to = static_cast<const uint8_t*>(buffer);
    const auto& response = dataspace().response;
    check(to >= response && capacity <= sizeof response &&
              to + capacity <= response + sizeof response,
          "a receive stays within the response buffer");
    const size_t piece = current.delivery & kPieceMask;
    const size_t count =
        std::min<size_t>({capacity, piece != 0 ? piece : capacity, current.bytes.size()});
    if (count == 0) {
        return (current.delivery & kFails) != 0 ? VEXO_SOCKET_ERROR : 0;
    }
    std::memcpy(buffer, current.bytes.data(), count);
    current.bytes = current.bytes.subspan(count);
    return static_cast<int>(count);
}
