#include "sim/fault_items.h"

#include <fstream>
#include <sstream>

#include "sim/catalogue_edits.h"
#include "sim/fault_values.h"

namespace sim {

namespace {

template <auto member>
void set(Fault& fault, const std::string& text) {
    read(text, fault.*member);
}

template <auto member, auto value>
void choose(Fault& fault, const std::string&) {
    fault.*member = value;
}

template <auto member>
void set_span(Fault& fault, const std::string& text) {
    if (text == "forever") {
        fault.*member = kForever;
    } else {
        set<member>(fault, text);
    }
}

void set_times(Fault& fault, const std::string& text) {
    fault.times = text == "always" ? Fault::kAlways : number<size_t>(text);
}

void set_chance(Fault& fault, const std::string& text) {
    fault.chance = number_within(text, 0, 100);
}

void set_rate(Fault& fault, const std::string& text) {
    fault.rate = number_within(text, 0.001, 1000);
}

void set_drift(Fault& fault, const std::string& text) {
    fault.drift = number_within(text, -100000, 100000);
}

void set_firmware(Fault& fault, const std::string& text) {
    fault.versions = fault.versions.value_or(Versions{});
    fault.versions->firmware = text.size() <= 255 ? text : (reject(), text);
}

void set_model(Fault& fault, const std::string& text) {
    fault.versions = fault.versions.value_or(Versions{});
    fault.versions->model = number<uint16_t>(text);
}

void load_catalogue(Fault& fault, const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    if (!file) {
        throw std::invalid_argument("cannot be read");
    }
    fault.catalogue = std::make_shared<Catalogue>(Catalogue::from_json(text.str()));
}

// NAME:OTHER, where only names hold colons that are no separators.
std::pair<std::string, std::string> pair(const std::string& text) {
    const size_t colon = text.rfind(':');
    return colon != std::string::npos && colon > 0 && colon + 1 < text.size()
               ? std::pair(text.substr(0, colon), text.substr(colon + 1))
               : (reject(), std::pair<std::string, std::string>());
}

void add_rename(Fault& fault, const std::string& text) {
    fault.edits.push_back(
        [names = pair(text)](Catalogue& c) { rename(c, names.first, names.second); });
}

void add_retype(Fault& fault, const std::string& text) {
    const auto [name, code] = pair(text);
    fault.edits.push_back([name = name, type = static_cast<Type>(number<uint8_t>(code))](
                              Catalogue& c) { retype(c, name, type); });
}

void add_removal(Fault& fault, const std::string& text) {
    fault.edits.push_back([text](Catalogue& c) { remove(c, text); });
}

void add_filling(Fault& fault, const std::string& text) {
    const auto page = number<uint8_t>(text);
    fault.edits.push_back(
        [page = page > 0 ? page : (reject(), page)](Catalogue& c) { fill_pages(c, page); });
}

template <auto edit>
void add_edit(Fault& fault, const std::string&) {
    fault.edits.push_back(edit);
}

void take_over(Fault& fault, const std::string&) {
    fault.reboot = Span(0);
    fault.link = Break::abandon;
    fault.versions = {9, "8.0.1", "Z1", "8.0.0"};
    fault.edits.push_back(renumber);
}

using F = Fault;

constexpr FaultItem kChoiceItems[] = {
    {"reply", "", choose<&F::target, Target::reply>,
     "replies; need not be said, but where an item for the controller is to wait for one"},
    {"package", "", choose<&F::target, Target::package>, "output packages instead of replies"},
    {"type", "O", set<&F::letter>, "only replies to requests of this type letter"},
    {"method", "servoJ", set<&F::method>, "only replies to calls of this method"},
    {"version", "N", set<&F::version>, "only replies to requests for this protocol version"},
    {"skip", "N", set<&F::skip>, "the first N of those messages pass unharmed"},
    {"every", "N", set<&F::every>, "then each Nth is hit"},
    {"chance", "PERCENT", set_chance, "and of these so many, at random"},
};

constexpr FaultItem kOccasionItems[] = {
    {"port", "io", set<&F::port>,
     "only on this port: `io`, `control`, `stream` or `raw`; of an outage: only there"},
    {"times", "N or always", set_times,
     "so many are hit in all; 1 when not given, or always with `every`, `chance` or `for`. Of "
     "what befalls the controller: so often, each time `at` later"},
    {"seed", "N", set<&F::seed>, "of everything random in this fault; 1 when not given"},
    {"at", "MS", set<&F::at>, "not before so long after the injection"},
    {"for", "MS", set<&F::lasts>, "and for so long"},
};

constexpr FaultItem kContentsItems[] = {
    {"status", "N", set<&F::status>, "the request is refused with this status and not carried out"},
    {"empty", "", choose<&F::empty_page, true>, "a catalogue page without entries"},
    {"entries", "N", set<&F::entries>,
     "a catalogue page with N entries at most, so that the list seems to end there"},
    {"count", "N", set<&F::count>, "a catalogue page that claims N entries"},
    {"recipe", "N", set<&F::recipe_id>, "another recipe id"},
    {"bytes", "HEX", set<&F::bytes>, "these bytes instead of the message"},
    {"size", "N", set<&F::size>,
     "cut, or filled up with zeros, to N bytes; the length word follows"},
    {"length", "N", set<&F::length_word>, "this length word, whatever the size"},
    {"letter", "X", set<&F::other_letter>, "another type letter"},
    {"inverted", "A+B", set<&F::inverted>, "these bytes are inverted"},
    {"noise", "N", set<&F::noise>, "N bytes at random places are changed"},
    {"stray", "HEX", set<&F::stray>, "these bytes in front of the message"},
    {"frozen", "", choose<&F::frozen, true>, "the package says what the one before said"},
    {"missed", "N", set<&F::missed>, "`package_counter` goes up by N more"},
};

constexpr FaultItem kDeliveryItems[] = {
    {"lost", "", choose<&F::lost, true>, "not sent"},
    {"delay", "MS", set<&F::delay>, "sent late; later messages on the connection wait for it"},
    {"jitter", "MS", set<&F::jitter>, "up to so much later, at random"},
    {"cuts", "A+B", set<&F::cuts>, "in pieces that begin at these bytes"},
    {"pieces", "N", set<&F::pieces>, "in pieces of N bytes"},
    {"pause", "MS", set<&F::pause>, "between the pieces; 20 ms when not given"},
    {"doubled", "", choose<&F::doubled, true>, "sent twice"},
    {"swapped", "", choose<&F::swapped, true>, "sent behind the next message"},
    {"burst", "N", set<&F::burst>, "kept back until N messages leave together"},
    {"after", "N", set<&F::link_after>, "only the first N bytes of the message are sent"},
    {"total", "N", set<&F::link_total>,
     "the message that holds byte N of all replies of the session, or of all packages since "
     "the start, and of it only what is before that byte"},
};

constexpr FaultItem kEndsItems[] = {
    {"close", "", choose<&F::link, Break::close>, "the connection is closed behind the message"},
    {"reset", "", choose<&F::link, Break::reset>, "the connection is reset behind it"},
    {"abandon", "", choose<&F::link, Break::abandon>,
     "the connection stays open, but nothing is read or sent any more, and the next byte that "
     "comes is answered with a reset"},
};

constexpr FaultItem kFrameItems[] = {
    {"altered", "", choose<&F::altered, true>, "its last byte is changed, its checksum is not"},
    {"tagged", "", choose<&F::tagged, true>, "with an 802.1Q tag"},
    {"source", "02:00:00:00:00:09", set<&F::source>, "from another station"},
    {"payload", "N", set<&F::payload_length>, "with this payload length word"},
    {"code", "N", set<&F::code>, "with another frame code"},
    {"gap", "N", set<&F::gap>, "N sequence numbers are left out before it"},
};

constexpr FaultItem kControllerItems[] = {
    {"reboot", "MS", set_span<&F::reboot>,
     "switched off for so long, then as just switched on; the connections end as `close`, "
     "`reset` or `abandon` says"},
    {"taken", "", take_over,
     "another controller takes the address: other versions, ids on other rows, connections "
     "abandoned"},
    {"silence", "MS", set_span<&F::silence>,
     "takes connections and messages, neither carries them out nor answers"},
    {"half-open", "MS", set_span<&F::half_open>,
     "connections are there and come about, but nothing is read or sent"},
    {"refuse", "MS", set_span<&F::refuse>, "nobody listens; the connections that there are go on"},
    {"disconnect", "", choose<&F::disconnect, true>,
     "the connections end as `close`, `reset` or `abandon` says"},
    {"recover", "", choose<&F::recover, true>, "all this is over, and the clock is right again"},
    {"rate", "HZ", set_rate, "another number of packages per second"},
    {"drift", "PPM", set_drift,
     "the controller's clock, which times the packages, too, is so much too fast"},
    {"clock-jitter", "MS", set<&F::clock_jitter>,
     "`controller_time` is up to so much ahead, at random"},
    {"clock-step", "MS", set<&F::clock_step>, "`controller_time` leaps ahead by so much"},
    {"error", "N", set<&F::error>, "the error N is set"},
};

constexpr FaultItem kIdentityItems[] = {
    {"model", "N", set_model, "another model number"},
    {"firmware", "TEXT", set_firmware, "another firmware version"},
    {"catalogue", "FILE", load_catalogue, "the catalogue of this file"},
    {"rename", "NAME:OTHER", add_rename, "what is called NAME is called OTHER"},
    {"retype", "NAME:N", add_retype, "the variable gets the type code N"},
    {"remove", "NAME", add_removal, "what is called so is left out"},
    {"renumbered", "", add_edit<renumber>, "in each list the ids go to other rows"},
    {"reordered", "", add_edit<reorder>, "each list begins with its last entry"},
    {"filled", "N", add_filling, "each list gets entries more until its length is a multiple of N"},
};

constexpr FaultGroup kGroups[] = {
    {"Which messages", true, kChoiceItems},
    {"When and where", false, kOccasionItems},
    {"What the message says", true, kContentsItems},
    {"How it is delivered", true, kDeliveryItems},
    {"How its connection ends (TCP)", false, kEndsItems},
    {"What befalls its frame, on the raw path", true, kFrameItems},
    {"What befalls the controller", false, kControllerItems},
    {"What it publishes, from the next session on", false, kIdentityItems},
};

}  // namespace

std::span<const FaultGroup> fault_groups() {
    return kGroups;
}

}  // namespace sim
