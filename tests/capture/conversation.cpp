#include "tests/capture/conversation.h"

#include <algorithm>

#include "sim/frame.h"

namespace test {
namespace {

constexpr uint16_t kClientPort = 40000;
constexpr uint8_t kSyn = 2;
constexpr uint8_t kAck = 16;
constexpr int64_t kStep = 1'000'000;

void put_big(Bytes& out, uint64_t value, unsigned width) {
    for (unsigned i = width; i-- > 0;) {
        out.push_back(static_cast<uint8_t>(value >> (8 * i)));
    }
}

void put_name(Bytes& out, const std::string& name) {
    out.push_back(static_cast<uint8_t>(name.size()));
    out.insert(out.end(), name.begin(), name.end());
}

Bytes page(const std::string& name, uint32_t id, uint8_t type, const Bytes& before = {1}) {
    Bytes bytes = before;
    put_name(bytes, name);
    sim::Writer out(bytes);
    out.number(id);
    out.number(type);
    return bytes;
}

}  // namespace

Bytes reply(char letter, const Bytes& payload) {
    Bytes bytes = message(letter, uint32_t{0});
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    sim::set_length_word(bytes, bytes.size());
    return bytes;
}

void Conversation::open(uint16_t port) {
    add_segment(port, false, kSyn, {});
    add_segment(port, true, kSyn | kAck, {});
}

void Conversation::send(uint16_t port, bool from_controller, const Bytes& bytes, size_t piece) {
    for (size_t at = 0; at < bytes.size(); at += piece) {
        const auto begin = bytes.begin() + static_cast<ptrdiff_t>(at);
        add_segment(port, from_controller, kAck,
                    {begin, begin + static_cast<ptrdiff_t>(std::min(piece, bytes.size() - at))});
    }
}

void Conversation::acknowledge(uint16_t port, bool from_controller) {
    add_segment(port, !from_controller, kAck, {});
}

void Conversation::send_frame(uint16_t sequence, const Bytes& payload) {
    sim::Frame frame;
    frame.source = kStation;
    frame.sequence = sequence;
    frame.payload = payload;
    packets.push_back({time_ns_ += kStep, sim::build_frame(frame)});
}

void Conversation::add_segment(uint16_t port, bool from_controller, uint8_t flags,
                               const Bytes& payload) {
    // Near the end of the numbers, so that they wrap.
    const auto start = [](bool controller) { return controller ? 0xFFFFFF00 : 0xFFFFF000; };
    uint32_t& own =
        next_.try_emplace({port, from_controller}, start(from_controller)).first->second;
    const uint32_t other =
        next_.try_emplace({port, !from_controller}, start(!from_controller)).first->second;
    Bytes bytes(12, 0);
    put_big(bytes, 0x0800, 2);
    put_big(bytes, 0x4500, 2);
    put_big(bytes, 40 + payload.size(), 2);
    put_big(bytes, 0x40000000, 4);
    put_big(bytes, 0x40060000, 4);
    put_big(bytes, from_controller ? kController : kClient, 4);
    put_big(bytes, from_controller ? kClient : kController, 4);
    put_big(bytes, from_controller ? port : kClientPort + port, 2);
    put_big(bytes, from_controller ? kClientPort + port : port, 2);
    put_big(bytes, own, 4);
    put_big(bytes, other, 4);
    put_big(bytes, 0x50, 1);
    put_big(bytes, flags, 1);
    put_big(bytes, 0xFFFF00000000, 6);
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    own += static_cast<uint32_t>(payload.size()) + ((flags & kSyn) != 0 ? 1 : 0);
    packets.push_back({time_ns_ += kStep, bytes});
}

void Conversation::ask(const Bytes& request, const Bytes& answer) {
    send(2295, false, request);
    send(2295, true, answer);
}

void Conversation::set_up(uint32_t version) {
    open(2295);
    const bool raw = (version & 0x10000) != 0;
    ask(message('V', version, uint32_t{0}),
        reply('V', raw ? Bytes(kStation.begin(), kStation.end()) : Bytes{}));
    // Two pages of outputs, the second one asked for by its first row.
    ask(message('R', uint32_t{0}), reply('R', page("other", 8, 18, page("counter", 7, 4, {2}))));
    ask(message('R', uint32_t{2}), reply('R', page("joints", 9, 13)));
    ask(message('r', uint32_t{0}), reply('r', page("speed", 100, 11)));
    ask(message('O', uint32_t{0}, uint16_t{2}, uint32_t{7}, uint32_t{9}), reply('O', {1}));
    ask(message('S'), reply('S'));
    if (!raw) {
        open(2299);
    }
}

Bytes Conversation::package(uint32_t count) {
    // The values look like headers of packages.
    return message('U', uint8_t{1}, count, uint64_t{0x0155003801550038}, uint64_t{0x0155},
                   uint64_t{0x5500380155003801}, 0.0, 0.0, 1.0);
}

}  // namespace test
