#include "wire/set_point.h"

namespace vexo::wire {

namespace {

// What both forms begin with.
MessageWriter begin(std::span<uint8_t> buffer, const SetPoint& point, bool with_vector,
                    size_t arguments) {
    MessageWriter message(buffer, Letter::method_call);
    message.u16(point.method).u8(static_cast<uint8_t>(arguments + (with_vector ? 1 : 0)));
    message.u8(VEXO_TYPE_F64).f64(point.value);
    message.u8(VEXO_TYPE_U32).u32(point.sequence);
    message.u8(VEXO_TYPE_U8).u8(point.flag);
    if (with_vector) {
        message.u8(VEXO_TYPE_6F64).reals({point.vector, kVectorLength});
    }
    return message;
}

}  // namespace

MessageWriter set_point_with_values(std::span<uint8_t> buffer, const SetPoint& point) {
    const bool with_vector = point.vector != nullptr;
    MessageWriter message = begin(buffer, point, with_vector, 4 + point.values.size());
    message.u8(VEXO_TYPE_U8).u8(static_cast<uint8_t>(point.values.size()));
    for (const double value : point.values) {
        message.u8(VEXO_TYPE_F64).f64(value);
    }
    return message;
}

MessageWriter set_point_with_array(std::span<uint8_t> buffer, const SetPoint& point) {
    const bool with_vector = point.vector != nullptr && point.flag != 0;
    MessageWriter message = begin(buffer, point, with_vector, 5);
    Argument::array(point.values).write(message);
    if (point.values.empty()) {
        message.skip(sizeof(double));
    }
    return message;
}

}  // namespace vexo::wire
