// Packets of a controller and its client as a capture has them, built byte by byte.
#ifndef TESTS_CAPTURE_CONVERSATION_H
#define TESTS_CAPTURE_CONVERSATION_H

#include <map>
#include <string>
#include <vector>

#include "sim/types.h"
#include "sim/wire.h"

namespace test {

using sim::Bytes;

inline constexpr uint32_t kController = 0x0A000002;  // 10.0.0.2
inline constexpr uint32_t kClient = 0x0A000001;
inline constexpr sim::MacAddress kStation{2, 0, 0, 0, 0, 0x0B};

// A message: the length word, the letter, and what the parts say.
template <typename... Numbers>
Bytes message(char letter, Numbers... numbers) {
    Bytes bytes;
    sim::Writer out(bytes);
    out.number(uint16_t{0});
    out.number(letter);
    (out.number(numbers), ...);
    sim::set_length_word(bytes, bytes.size());
    return bytes;
}

// An accepted reply: the status and three bytes that mean nothing before the payload.
Bytes reply(char letter, const Bytes& payload = {});

struct Taken {
    int64_t time_ns = 0;
    Bytes bytes;
};

class Conversation {
public:
    // The connection begins.
    void open(uint16_t port);
    // Bytes over TCP, a segment for each piece; what they are numbered goes on.
    void send(uint16_t port, bool from_controller, const Bytes& bytes, size_t piece = 1400);
    // The receiver has everything that was sent so far.
    void acknowledge(uint16_t port, bool from_controller);
    // A package in a raw frame.
    void send_frame(uint16_t sequence, const Bytes& payload);

    // All of a session up to the start: pages, and the recipe 1 of a counter and six numbers.
    void set_up(uint32_t version);
    // A package of that recipe.
    static Bytes package(uint32_t count);
    // What one package takes on the wire.
    static constexpr size_t kPackage = 4 + 4 + 48;

    std::vector<Taken> packets;

private:
    void add_segment(uint16_t port, bool from_controller, uint8_t flags, const Bytes& payload);
    void ask(const Bytes& request, const Bytes& answer);

    int64_t time_ns_ = 1'700'000'000'000'000'000;
    std::map<std::pair<uint16_t, bool>, uint32_t> next_;  // sequence numbers
};

}  // namespace test

#endif
