// A fault: what befalls one or more of the messages that a simulated controller sends.
#ifndef SIM_FAULT_H
#define SIM_FAULT_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace sim {

using MacAddress = std::array<uint8_t, 6>;

enum class Target { reply, package };
enum class Break { none, close, reset };

struct Fault {
    static constexpr size_t always = std::numeric_limits<size_t>::max();
    static constexpr size_t whole = std::numeric_limits<size_t>::max();

    // Which messages: replies to requests, or output packages.
    Target target = Target::reply;
    char letter = 0;     // replies to requests of this type only; 0: of any type
    std::string method;  // replies to calls of this method only; empty: of any
    size_t skip = 0;     // so many of those messages pass unharmed first
    size_t times = 1;    // then so many are hit

    // What the message says. A request that is refused is not carried out.
    std::optional<uint8_t> status;              // refuse the request with this status
    bool empty_page = false;                    // a catalogue page without entries
    std::optional<std::vector<uint8_t>> bytes;  // these bytes instead of the message
    std::optional<size_t> size;                 // cut, or filled up with zeros, to this size
    std::optional<uint16_t> length_word;        // a length word that may lie
    std::optional<char> other_letter;           // another type letter

    // How it is delivered.
    bool lost = false;                    // not at all
    std::chrono::milliseconds delay{0};   // late
    std::vector<size_t> cuts;             // in pieces that begin at these positions (TCP only),
    std::chrono::milliseconds pause{20};  // so long apart
    Break link = Break::none;             // the connection ends (TCP only)
    size_t link_after = whole;            // when so many bytes of the message are sent

    // What befalls the frame that carries it (raw frames only).
    bool doubled = false;                    // sent twice
    bool altered = false;                    // last payload byte changed, checksum kept
    bool tagged = false;                     // with an 802.1Q tag
    std::optional<MacAddress> source;        // from another station
    std::optional<uint16_t> payload_length;  // a payload length word that may lie
};

// A fault written as comma-separated items, for example "type=O,status=5,times=2" or
// "package,lost,times=always"; docs/simulator.md lists the items. Throws std::invalid_argument with
// a text that names the item.
Fault parse_fault(const std::string& text);

}  // namespace sim

#endif
