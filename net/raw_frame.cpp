#include "net/raw_frame.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>

#include "net/raw_socket.h"

namespace vexo {
namespace {

// A number at a place of a message.
template <typename Number, std::endian order = std::endian::little>
struct Field {
    size_t offset;
};

// Our header. The first four fields are common to both modes, and are all of it in IP mode.
namespace header {
constexpr Field<uint8_t> marker{0};
constexpr Field<uint8_t> code{1};
constexpr Field<uint16_t> checksum{2};
constexpr Field<uint16_t> magic{4};
constexpr Field<uint16_t> sequence{6};
constexpr size_t ip_size = 8;
constexpr Field<uint16_t> payload_length{8};
constexpr Field<uint16_t> reserved{10};  // the builder of the payload may use it
constexpr size_t ethernet_size = 12;

constexpr uint16_t our_magic = 0xB7C8;
}  // namespace header

// What precedes our header in Ethernet mode, and how long an 802.1Q tag is.
namespace link {
constexpr size_t destination = 0;
constexpr size_t source = 6;
constexpr Field<uint16_t, std::endian::big> type{12};
constexpr size_t size = 14;

constexpr uint16_t tagged = 0x8100;
constexpr size_t tag_size = 4;
}  // namespace link

static_assert(header::reserved.offset + sizeof(uint16_t) == header::ethernet_size);
static_assert(link::size + header::ethernet_size == ethernet::header_length);
static_assert(header::ip_size == ip::header_length);

// Bytes of a message. What would be read outside of them is 0, what would be written is dropped.
class Bytes {
public:
    explicit Bytes(std::span<uint8_t> bytes) : bytes_(bytes) {}

    size_t size() const { return bytes_.size(); }
    Bytes from(size_t offset) const {
        return Bytes(bytes_.subspan(std::min(offset, bytes_.size())));
    }
    uint16_t checksum(size_t count) const {
        return internet_checksum(bytes_.first(std::min(count, bytes_.size())));
    }

    template <typename Number, std::endian order>
    Number get(Field<Number, order> field) const {
        Number value = 0;
        if (holds(field.offset, sizeof value)) {
            for (size_t i = 0; i < sizeof value; ++i) {
                const unsigned byte = bytes_[field.offset + i];
                value = static_cast<Number>(value | byte << shift<Number, order>(i));
            }
        }
        return value;
    }
    template <typename Number, std::endian order>
    void put(Field<Number, order> field, Number value) const {
        if (holds(field.offset, sizeof value)) {
            for (size_t i = 0; i < sizeof value; ++i) {
                bytes_[field.offset + i] = static_cast<uint8_t>(value >> shift<Number, order>(i));
            }
        }
    }
    void put(size_t offset, const MacBytes& mac) const {
        if (holds(offset, mac.size())) {
            std::copy(mac.begin(), mac.end(), bytes_.begin() + static_cast<ptrdiff_t>(offset));
        }
    }

private:
    bool holds(size_t offset, size_t width) const {
        return offset <= size() && width <= size() - offset;
    }
    template <typename Number, std::endian order>
    static constexpr unsigned shift(size_t i) {
        return static_cast<unsigned>(order == std::endian::little ? i : sizeof(Number) - 1 - i) * 8;
    }

    std::span<uint8_t> bytes_;
};

void put_common_fields(RawInstance& instance, uint8_t code, const Bytes& message) {
    message.put(header::marker, instance.marker);
    message.put(header::code, code);
    message.put(header::checksum, uint16_t{0});
    message.put(header::magic, header::our_magic);
    message.put(header::sequence, instance.sequence++);
}

void put_checksum(const Bytes& message) {
    message.put(header::checksum, message.checksum(message.size()));
}

bool is_ours(const RawInstance& instance, const Bytes& message, size_t header_size) {
    return message.size() >= header_size && instance.version == raw_version &&
           message.get(header::marker) == instance.marker &&
           message.get(header::magic) == header::our_magic;
}

// Our header follows the EtherType, and that follows the 802.1Q tags.
Bytes without_link_header(const Bytes& frame) {
    Bytes rest = frame;
    while (rest.get(link::type) == link::tagged) {
        rest = rest.from(link::tag_size);
    }
    return rest.from(link::size);
}

// Clears the field, over which the checksum is taken as 0, for good.
bool checksum_holds(const Bytes& message, size_t count) {
    const uint16_t claimed = message.get(header::checksum);
    message.put(header::checksum, uint16_t{0});
    return message.checksum(count) == claimed;
}

void learn_peer(RawInstance& instance, std::span<const uint8_t> datagram) {
    constexpr size_t source_offset = 12;
    in_addr_t source = 0;
    if (datagram.size() >= source_offset + sizeof source) {
        std::memcpy(&source, datagram.data() + source_offset, sizeof source);
    }
    instance.peer_address.store(source, std::memory_order_relaxed);
}

}  // namespace

void seal_ethernet_frame(RawInstance& instance, uint8_t code, std::span<uint8_t> frame) {
    const Bytes whole(frame);
    whole.put(link::destination, instance.destination.get());
    whole.put(link::source, instance.source.get());
    whole.put(link::type, ethernet::our_type);
    const Bytes message = whole.from(link::size);
    put_common_fields(instance, code, message);
    message.put(header::payload_length,
                static_cast<uint16_t>(message.size() - header::ethernet_size));
    put_checksum(message);
}

void seal_ip_message(RawInstance& instance, uint8_t code, std::span<uint8_t> message) {
    put_common_fields(instance, code, Bytes(message));
    put_checksum(Bytes(message));
}

long open_ethernet_frame(const RawInstance& instance, std::span<uint8_t> frame, uint8_t& code) {
    const Bytes message = without_link_header(Bytes(frame));
    const size_t payload_length = message.get(header::payload_length);
    const size_t covered = header::ethernet_size + payload_length;
    if (!is_ours(instance, message, header::ethernet_size) || covered > message.size()) {
        return SOCKET_RAW_MALFORMED;
    }
    code = message.get(header::code);
    if (!checksum_holds(message, covered)) {
        return SOCKET_RAW_BAD_CHECKSUM;
    }
    return static_cast<long>(payload_length);
}

size_t ip_header_length(std::span<const uint8_t> datagram) {
    return datagram.empty() ? 0 : (datagram[0] & 0x0Fu) * 4;
}

long open_ip_datagram(RawInstance& instance, std::span<uint8_t> datagram, uint8_t& code) {
    const Bytes message = Bytes(datagram).from(ip_header_length(datagram));
    if (!is_ours(instance, message, header::ip_size)) {
        return SOCKET_RAW_MALFORMED;
    }
    learn_peer(instance, datagram);
    code = message.get(header::code);
    return static_cast<long>(message.size() - header::ip_size);
}

}  // namespace vexo
