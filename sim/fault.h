// A fault: what befalls some of the messages that a simulated controller sends, or the controller
// itself.
#ifndef SIM_FAULT_H
#define SIM_FAULT_H

#include <functional>
#include <limits>
#include <memory>

#include "sim/types.h"

namespace sim {

// What a fault waits for: the reply to a request, an output package, or nothing but its time.
enum class Target { reply, package, controller };

struct Fault {
    static constexpr size_t kAlways = std::numeric_limits<size_t>::max();
    static constexpr size_t kWhole = std::numeric_limits<size_t>::max();

    // Which messages.
    Target target = Target::reply;
    std::optional<Port> port;  // of this port only; of what befalls the controller: there only
    char letter = 0;           // replies to requests of this type only; 0: of any type
    std::string method;        // replies to calls of this method only; empty: of any
    std::optional<uint16_t> version;  // replies to requests for this protocol version only
    size_t skip = 0;                  // so many of those messages pass unharmed first
    size_t every = 0;                 // then each of this number is hit; 0: each
    double chance = 100;              // per cent of those that are hit
    std::optional<size_t> times;      // so many in all; not given: one, or with every, chance or
                                      // lasts: always
    uint32_t seed = 1;                // of everything random about it
    Span at{0};                       // not before so long after the injection
    Span lasts = kForever;            // and no longer than this from then on

    // What the message says. A request that is refused is not carried out.
    std::optional<uint8_t> status;              // refuse the request with this status
    bool empty_page = false;                    // a catalogue page without entries
    std::optional<size_t> entries;              // a catalogue page with so many entries at most
    std::optional<uint8_t> count;               // that says it has so many entries
    std::optional<uint8_t> recipe_id;           // another recipe id
    std::optional<std::vector<uint8_t>> bytes;  // these bytes instead of the message
    std::optional<size_t> size;                 // cut, or filled up with zeros, to this size
    std::optional<uint16_t> length_word;        // a length word that may lie
    std::optional<char> other_letter;           // another type letter
    std::vector<size_t> inverted;               // these bytes inverted
    size_t noise = 0;                           // so many random bytes at random places
    std::vector<uint8_t> stray;                 // these bytes in front of it
    bool frozen = false;                        // a package that says what the one before said
    uint32_t missed = 0;                        // package_counter has gone up by so many more

    // How it is delivered.
    bool lost = false;           // not at all
    Span delay{0};               // late
    Span jitter{0};              // and up to so much later, at random
    std::vector<size_t> cuts;    // in pieces that begin at these positions (TCP only),
    size_t pieces = 0;           // or that are so long,
    Span pause{20000};           // so long apart
    bool doubled = false;        // sent twice
    bool swapped = false;        // behind the next message
    size_t burst = 0;            // together with those that follow, so many in all
    Break link = Break::none;    // the connection ends (TCP only)
    size_t link_after = kWhole;  // when so many bytes of the message are sent, and no more are,
    std::optional<size_t>
        link_total;  // or of all: replies of the session, packages since the start

    // What befalls the frame that carries it (raw frames only).
    bool altered = false;                    // last payload byte changed, checksum kept
    bool tagged = false;                     // with an 802.1Q tag
    std::optional<MacAddress> source;        // from another station
    std::optional<uint16_t> payload_length;  // a payload length word that may lie
    std::optional<uint8_t> code;             // with another frame code
    uint16_t gap = 0;                        // so many sequence numbers left out before it

    // What befalls the controller: at once, or when a message meets the fault, behind that message.
    std::optional<Span> reboot;     // down for so long, no port is open; then as just switched on
    std::optional<Span> silence;    // takes messages, but neither carries them out nor answers
    std::optional<Span> half_open;  // connections are there, but nothing is read or sent
    std::optional<Span> refuse;     // nobody listens; the connections that there are go on
    bool disconnect = false;        // the connections end as `link` says, or with a reset
    bool recover = false;           // ends the four above, and the clock is right again
    std::optional<double> rate;     // packages per second
    std::optional<double> drift;    // ppm by which the controller's clock is too fast
    std::optional<Span> clock_jitter;  // controller_time is up to so much ahead, at random
    std::optional<Span> clock_step;    // controller_time leaps ahead
    std::optional<uint32_t> error;     // raise this error

    // What the controller is from the next session on.
    std::optional<Versions> versions;
    std::shared_ptr<const Catalogue> catalogue;
    std::vector<std::function<void(Catalogue&)>> edits;  // of the latest catalogue

    bool befalls_controller() const;
};

// A fault written as items with commas or blanks between them, for example
// "type=O,status=5,times=2" or "package,lost,every=10" or "reboot 500 at 2000". Throws
// std::invalid_argument with a text that names the item. What befalls the controller does so at its
// time, unless the text names messages.
Fault parse_fault(const std::string& text);

// All items and their meaning, as a table in Markdown.
std::string fault_table();

}  // namespace sim

#endif
