#include "tools/vexo/capture_reader.h"

#include <arpa/inet.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cstring>

#include "tools/capture/catalogue_file.h"
#include "tools/vexo/capture_source.h"
#include "tools/vexo/interrupt.h"
#include "tools/vexo/live.h"

namespace tool {
namespace {

using std::chrono::steady_clock;

constexpr int kPacketsAtOnce = 1000;

// Does it, and tells what goes wrong with it as the tool does.
template <typename Act>
auto told(Act act) {
    try {
        return act();
    } catch (const capture::SourceError& error) {
        throw Failure(Exit::failed, "capture", error.what(), error.remedy);
    }
}

void check_recipe(const capture::Known& known) {
    if (known.catalogue.outputs.empty() && known.catalogue.inputs.empty()) {
        return;  // the pages may be in the capture
    }
    for (const std::string& name : known.recipe) {
        if (known.catalogue.find(name) == nullptr) {
            throw Failure(Exit::failed, "unknown_name",
                          "The catalogue has no variable \"" + name + '"',
                          "give --recipe the names of the set-up, in its order");
        }
    }
}

capture::Options decoder_options(const Options& options) {
    capture::Options wanted;
    if (options.host_named()) {
        wanted.controller = ntohl(inet_addr(options.host.c_str()));
    }
    if (!options.catalogue.empty()) {
        try {
            wanted.known.catalogue = capture::read_catalogue_file(options.catalogue);
        } catch (const std::runtime_error& error) {
            throw Failure(Exit::failed, "bad_file", error.what(),
                          "make one with `vexo list --catalogue`");
        }
    }
    wanted.known.recipe = options.recipe;
    check_recipe(wanted.known);
    wanted.counter = kCounterName;
    return wanted;
}

void mention(std::string& text, uint64_t count, const char* what) {
    if (count > 0) {
        text += (text.empty() ? "" : ", ") + std::to_string(count) + what;
    }
}

VexoSessionVariable row_of(uint32_t kind, const std::string& name, uint32_t id, uint8_t type) {
    VexoSessionVariable row = variable_of(capture::make_field(name, type, 0));
    row.kind = kind;
    row.id = id;
    if (kind == VEXO_SESSION_METHOD) {
        row.type = row.bytes = row.element = row.elements = 0;
    }
    return row;
}

std::vector<VexoSessionVariable> rows_of(const capture::Catalogue& catalogue) {
    std::vector<VexoSessionVariable> rows;
    for (const capture::Variable& output : catalogue.outputs) {
        rows.push_back(row_of(VEXO_SESSION_OUTPUT, output.name, output.id, output.type));
    }
    for (const capture::Variable& input : catalogue.inputs) {
        rows.push_back(row_of(VEXO_SESSION_INPUT, input.name, input.id, input.type));
    }
    for (const capture::Method& method : catalogue.methods) {
        rows.push_back(row_of(VEXO_SESSION_METHOD, method.name, method.id, 0));
    }
    return rows;
}

bool whole(const capture::Catalogue& catalogue) {
    return !catalogue.outputs.empty() && !catalogue.inputs.empty() && !catalogue.methods.empty();
}

}  // namespace

void add_capture_options(Command& command, Options& options) {
    command
        .add_option("--catalogue", options.catalogue,
                    "with --capture: the catalogue, where no pages of it are captured")
        ->type_name("FILE");
    command
        .add_option("--recipe", options.recipe,
                    "with --capture: the variables of a package in their order, where their set-up "
                    "is not captured")
        ->type_name("NAME,...")
        ->list();
}

CaptureReader::CaptureReader(const Options& options, capture::Robot::TakeRow take)
    : packets_(told([&] { return capture::PacketSource(options.capture); })),
      decoder_(decoder_options(options), std::move(take)) {}

bool CaptureReader::read(TimePoint until) {
    if (ended_) {
        return false;
    }
    capture::Packet packet;
    for (int i = 0; i < kPacketsAtOnce; ++i) {
        const auto next = told([&] { return packets_.next(packet); });
        if (next == capture::PacketSource::Next::packet) {
            decoder_.take(packet);
            continue;
        }
        if (next == capture::PacketSource::Next::end) {
            decoder_.finish();
            ended_ = true;
        } else if (i == 0) {
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(until - steady_clock::now());
            pollfd events[] = {{packets_.descriptor(), POLLIN, 0},
                               {interrupt_descriptor(), POLLIN, 0}};
            poll(events, std::size(events),
                 static_cast<int>(std::clamp<int64_t>(left.count(), 0, 1000)));
        }
        break;
    }
    return true;
}

std::string CaptureReader::mishaps() const {
    const capture::Counters& counters = decoder_.counters();
    std::string text;
    mention(text, counters.resent, " segments sent again");
    mention(text, counters.reordered, " overtaken");
    mention(text, counters.unseen, " bytes not captured");
    mention(text, counters.repeated_frames, " frames twice or too late");
    mention(text, counters.bad_frames, " broken frames");
    mention(text, counters.malformed, " malformed packages");
    mention(text, packets_.dropped(), " packets dropped here");
    return text;
}

std::vector<VexoSessionVariable> captured_catalogue(const Options& options) {
    CaptureReader reader(options, [](const capture::Row&) {});
    const auto end = steady_clock::now() +
                     std::chrono::microseconds(static_cast<int64_t>(options.timeout_s * 1e6));
    const auto catalogue = [&] {
        const auto all = reader.decoder().catalogues();
        return all.empty() ? capture::Catalogue() : all.front().second;
    };
    while (!interrupted() && reader.read(end)) {
        if (reader.live() && (whole(catalogue()) || steady_clock::now() >= end)) {
            break;
        }
    }
    std::vector<VexoSessionVariable> rows = rows_of(catalogue());
    if (rows.empty()) {
        throw Failure(reader.live() ? Exit::unreachable : Exit::failed, "no_catalogue",
                      "No page of a catalogue passed by in " + options.capture,
                      "capture from before the application connects: it reads the pages then");
    }
    return rows;
}

}  // namespace tool
