#include "wire/frame.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "wire/checksum.h"

namespace vexo::wire {
namespace {

// A number at a place of a message.
template <typename Number, std::endian order = std::endian::little>
struct Field {
    size_t offset;
};

// Our header. The first five fields are common to both modes, and are all of it in IP mode.
namespace header {
constexpr Field<uint8_t> kMarker{0};
constexpr Field<uint8_t> kCode{1};
constexpr Field<uint16_t> kChecksum{2};
constexpr Field<uint16_t> kMagic{4};
constexpr Field<uint16_t> kSequence{6};
constexpr Field<uint16_t> kPayloadLength{8};
constexpr Field<uint16_t> kReserved{10};  // the builder of the payload may use it
constexpr size_t kSize = 12;

constexpr uint8_t kOurMarker = 0xA6;
constexpr uint16_t kOurMagic = 0xB7C8;
}  // namespace header

// What precedes our header in Ethernet mode, and how long an 802.1Q tag is.
namespace link {
constexpr size_t kDestination = 0;
constexpr size_t kSource = 6;
constexpr Field<uint16_t, std::endian::big> kType{12};
constexpr size_t kSize = 14;

constexpr uint16_t kTagged = 0x8100;
constexpr size_t kTagSize = 4;
}  // namespace link

constexpr size_t kIpSource = 12;  // in the IPv4 header

static_assert(header::kReserved.offset + sizeof(uint16_t) == header::kSize);
static_assert(link::kSize + header::kSize == kEthernetHeader);
static_assert(header::kSequence.offset + sizeof(uint16_t) == kIpHeader);

// Bytes of a message. What would be read outside of them is 0, what would be written is dropped.
template <typename Byte>
class Bytes {
public:
    explicit Bytes(std::span<Byte> bytes) : bytes_(bytes) {}

    size_t size() const { return bytes_.size(); }
    std::span<Byte> first(size_t count) const {
        return bytes_.first(std::min(count, bytes_.size()));
    }
    Bytes from(size_t offset) const {
        return Bytes(bytes_.subspan(std::min(offset, bytes_.size())));
    }

    template <typename Number, std::endian order>
    Number get(Field<Number, order> field) const {
        Number value = 0;
        get(field.offset, &value, sizeof value);
        return order == std::endian::little ? value : swapped(value);
    }
    void get(size_t offset, void* to, size_t width) const {
        if (holds(offset, width)) {
            std::memcpy(to, bytes_.data() + offset, width);
        }
    }

    template <typename Number, std::endian order>
    void put(Field<Number, order> field, Number value) const {
        const Number ordered = order == std::endian::little ? value : swapped(value);
        put(field.offset, &ordered, sizeof ordered);
    }
    void put(size_t offset, const void* from, size_t width) const {
        if (holds(offset, width)) {
            std::memcpy(bytes_.data() + offset, from, width);
        }
    }

private:
    bool holds(size_t offset, size_t width) const {
        return offset <= size() && width <= size() - offset;
    }
    template <typename Number>
    static Number swapped(Number value) {
        static_assert(sizeof value == 2 || sizeof value == 1);
        return sizeof value == 1 ? value : static_cast<Number>(value << 8 | value >> 8);
    }

    std::span<Byte> bytes_;
};

using Writable = Bytes<uint8_t>;

void put_common_fields(uint8_t code, uint16_t sequence, const Writable& message) {
    message.put(header::kMarker, header::kOurMarker);
    message.put(header::kCode, code);
    message.put(header::kChecksum, uint16_t{0});
    message.put(header::kMagic, header::kOurMagic);
    message.put(header::kSequence, sequence);
}

void put_checksum(const Writable& message) {
    message.put(header::kChecksum, internet_checksum(message.first(message.size())));
}

template <typename Byte>
bool is_ours(const Bytes<Byte>& message, size_t header_size) {
    return message.size() >= header_size && message.get(header::kMarker) == header::kOurMarker &&
           message.get(header::kMagic) == header::kOurMagic;
}

// Our header follows the EtherType, and that follows the 802.1Q tags.
Writable without_link_header(const Writable& frame) {
    Writable rest = frame;
    while (rest.get(link::kType) == link::kTagged) {
        rest = rest.from(link::kTagSize);
    }
    return rest.from(link::kSize);
}

// The program of a socket filter, statement by statement. Numbers are loaded as big-endian ones.
namespace filter {
constexpr sock_filter load(uint16_t size, size_t offset) {
    return {static_cast<uint16_t>(BPF_LD | size | BPF_ABS), 0, 0, static_cast<uint32_t>(offset)};
}
constexpr sock_filter load_length() {
    return {BPF_LD | BPF_W | BPF_LEN, 0, 0, 0};
}
// Goes on with the next statement where it holds, else so many further on.
constexpr sock_filter require(uint16_t test, uint32_t value, uint8_t otherwise) {
    return {static_cast<uint16_t>(BPF_JMP | test), 0, otherwise, value};
}
constexpr sock_filter compute(uint16_t operation, uint32_t value = 0) {
    return {static_cast<uint16_t>(BPF_ALU | operation), 0, 0, value};
}
constexpr sock_filter keep() {
    return {BPF_MISC | BPF_TAX, 0, 0, 0};
}
constexpr sock_filter answer(uint32_t bytes) {
    return {BPF_RET | BPF_K, 0, 0, bytes};
}

constexpr uint32_t big_endian(std::span<const uint8_t> bytes) {
    uint32_t value = 0;
    for (const uint8_t byte : bytes) {
        value = value << 8 | byte;
    }
    return value;
}
}  // namespace filter

// Clears the field for good.
bool checksum_holds(const Writable& message, size_t count) {
    const uint16_t claimed = message.get(header::kChecksum);
    message.put(header::kChecksum, uint16_t{0});
    return internet_checksum(message.first(count)) == claimed;
}

}  // namespace

void seal_ethernet_frame(const EthernetHeader& fields, std::span<uint8_t> frame) {
    const Writable whole(frame);
    whole.put(link::kDestination, fields.destination.data(), fields.destination.size());
    whole.put(link::kSource, fields.source.data(), fields.source.size());
    whole.put(link::kType, kEtherType);
    const Writable message = whole.from(link::kSize);
    put_common_fields(fields.code, fields.sequence, message);
    message.put(header::kPayloadLength, static_cast<uint16_t>(message.size() - header::kSize));
    put_checksum(message);
}

void seal_ip_message(uint8_t code, uint16_t sequence, std::span<uint8_t> message) {
    put_common_fields(code, sequence, Writable(message));
    put_checksum(Writable(message));
}

OpenedEthernetFrame open_ethernet_frame(std::span<uint8_t> frame) {
    OpenedEthernetFrame opened;
    const Writable message = without_link_header(Writable(frame));
    const size_t payload_length = message.get(header::kPayloadLength);
    const size_t covered = header::kSize + payload_length;
    if (!is_ours(message, header::kSize) || covered > message.size()) {
        return opened;
    }
    opened.code = message.get(header::kCode);
    opened.sequence = message.get(header::kSequence);
    opened.payload = message.first(covered).subspan(header::kSize);
    Writable(frame).get(link::kSource, opened.source.data(), opened.source.size());
    opened.fault = checksum_holds(message, covered) ? FrameFault::none : FrameFault::bad_checksum;
    return opened;
}

std::array<sock_filter, kForeignFilterSize> filter_of_foreign_frames(const MacBytes& station) {
    using namespace filter;
    constexpr size_t kMessage = link::kSize;
    constexpr size_t kLength = kMessage + header::kPayloadLength.offset;
    constexpr uint8_t kPass = kForeignFilterSize - 2;
    const std::span<const uint8_t> address(station);
    return {{
        load_length(),
        require(BPF_JGE | BPF_K, kEthernetHeader, kPass - 2),
        load(BPF_H, link::kType.offset),
        require(BPF_JEQ | BPF_K, kEtherType, kPass - 4),
        load(BPF_B, kMessage + header::kMarker.offset),
        require(BPF_JEQ | BPF_K, header::kOurMarker, kPass - 6),
        load(BPF_H, kMessage + header::kMagic.offset),
        require(BPF_JEQ | BPF_K, std::rotl(header::kOurMagic, 8), kPass - 8),
        // A frame that says to have more than it has.
        load(BPF_B, kLength + 1),
        compute(BPF_MUL | BPF_K, 256),
        keep(),
        load(BPF_B, kLength),
        compute(BPF_ADD | BPF_X),
        compute(BPF_ADD | BPF_K, kEthernetHeader),
        keep(),
        load_length(),
        require(BPF_JGE | BPF_X, 0, kPass - 17),
        load(BPF_W, link::kSource),
        require(BPF_JEQ | BPF_K, big_endian(address.first(4)), kPass - 18),
        load(BPF_H, link::kSource + 4),
        require(BPF_JEQ | BPF_K, big_endian(address.subspan(4)), kPass - 20),
        answer(UINT32_MAX),
        answer(0),
    }};
}

OpenedIpDatagram open_ip_datagram(std::span<const uint8_t> datagram) {
    OpenedIpDatagram opened;
    const Bytes<const uint8_t> whole(datagram);
    const auto message = whole.from(ip_header_length(datagram));
    if (!is_ours(message, kIpHeader)) {
        return opened;
    }
    opened.fault = FrameFault::none;
    opened.code = message.get(header::kCode);
    opened.sequence = message.get(header::kSequence);
    opened.payload = message.first(message.size()).subspan(kIpHeader);
    whole.get(kIpSource, &opened.source, sizeof opened.source);
    return opened;
}

size_t ip_header_length(std::span<const uint8_t> datagram) {
    return datagram.empty() ? 0 : (datagram[0] & 0x0Fu) * 4;
}

}  // namespace vexo::wire
