// Pages of the controller's catalogue: its outputs, inputs and methods.
#ifndef WIRE_CATALOGUE_H
#define WIRE_CATALOGUE_H

#include "wire/message.h"

namespace vexo::wire {

// The most rows that a page has, by the protocol version.
inline constexpr uint32_t kSmallPage = 10;  // version 1
inline constexpr uint32_t kLargePage = 200;

// The name lies in the reply and has no final zero.
struct VariableRow {
    std::string_view name;
    uint32_t id;
    uint8_t type;  // type code
};

struct MethodRow {
    std::string_view name;
    uint16_t id;
};

// Asks for the page that begins with row `first`, by the letter of one of the three lists.
MessageWriter page_request(std::span<uint8_t> buffer, Letter list, uint32_t first);

template <typename Row>
Row read_row(MessageReader& rows);
template <>
VariableRow read_row(MessageReader& rows);
template <>
MethodRow read_row(MessageReader& rows);

// The rows of a page, one after another. A row that the reply does not hold reads as far as it is
// there, and as zeros and an empty name from then on.
template <typename Row>
class Page {
public:
    explicit Page(std::span<const uint8_t> reply)
        : rows_(reply_payload(reply)), count_(rows_.u8()) {}

    // How many rows the reply says it has.
    uint8_t count() const { return count_; }
    Row next() { return read_row<Row>(rows_); }
    // Whether all that was read was there.
    bool ok() const { return rows_.ok(); }

private:
    MessageReader rows_;
    uint8_t count_;
};

using VariablePage = Page<VariableRow>;
using MethodPage = Page<MethodRow>;

}  // namespace vexo::wire

#endif
