#include "tools/capture/dialogue.h"

#include <algorithm>

#include "wire/catalogue.h"
#include "wire/negotiation.h"
#include "wire/recipe.h"

namespace capture {
namespace {

using vexo::wire::Letter;
using vexo::wire::MessageReader;

constexpr size_t kMostPending = 64;   // more are not waited for: a client has one at a time
constexpr size_t kMostRows = 10'000;  // of a list

constexpr bool is_letter(uint8_t letter) {
    constexpr std::string_view kLetters = "VRrMOISPUvm";
    return kLetters.find(static_cast<char>(letter)) != std::string_view::npos;
}

std::vector<uint32_t> ids_of(MessageReader& reader, uint16_t count) {
    std::vector<uint32_t> ids;
    for (uint16_t i = 0; i < count && reader.ok(); ++i) {
        ids.push_back(reader.u32());
    }
    return reader.ok() ? ids : std::vector<uint32_t>{};
}

Variable entry_of(const vexo::wire::VariableRow& row) {
    return {std::string(row.name), row.id, row.type};
}

Method entry_of(const vexo::wire::MethodRow& row) {
    return {std::string(row.name), row.id};
}

}  // namespace

void Messages::bytes(Bytes bytes, int64_t) {
    waiting_.insert(waiting_.end(), bytes.begin(), bytes.end());
    size_t taken = 0;
    while (waiting_.size() - taken >= vexo::wire::kMessageHeader) {
        const Bytes rest = Bytes(waiting_).subspan(taken);
        const size_t length = vexo::wire::message_length(rest);
        if (length < vexo::wire::kMessageHeader || !is_letter(rest[2])) {
            taken = waiting_.size();
        } else if (length > rest.size()) {
            break;
        } else {
            take_(rest.first(length));
            taken += length;
        }
    }
    waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<ptrdiff_t>(taken));
}

void Dialogue::begin() {
    requests_.gap(0);
    replies_.gap(0);
    pending_.clear();
    recipes_.forget();
}

void Dialogue::take_request(Bytes message) {
    MessageReader reader(message, vexo::wire::kMessageHeader);
    Request request;
    request.letter = static_cast<Letter>(message[2]);
    switch (request.letter) {
        case Letter::package:
            return;  // has no reply
        case Letter::negotiation:
            request.frames = (reader.u32() & vexo::wire::kVersionRaw) != 0;
            break;
        case Letter::output_recipe:
            reader.u32();
            request.ids = ids_of(reader, reader.u16());
            break;
        case Letter::output_page:
        case Letter::input_page:
        case Letter::method_page:
            request.first = reader.u32();
            break;
        default:
            break;
    }
    if (pending_.size() == kMostPending) {
        pending_.pop_front();
    }
    pending_.push_back(std::move(request));
}

// Requests are answered in their order. One that is passed over had no answer, or it was not seen.
void Dialogue::take_reply(Bytes message) {
    const auto header = vexo::wire::reply_header(message);
    const auto asked =
        std::ranges::find(pending_, static_cast<Letter>(header.letter), &Request::letter);
    if (asked == pending_.end()) {
        return;
    }
    const Request request = std::move(*asked);
    pending_.erase(pending_.begin(), asked + 1);
    if (header.status == 0 && message.size() > vexo::wire::kReplyPayload) {
        take_accepted(request, message);
    }
}

void Dialogue::take_accepted(const Request& request, Bytes reply) {
    switch (request.letter) {
        case Letter::negotiation:
            if (request.frames) {
                station_(vexo::wire::controller_mac(reply));
            }
            break;
        case Letter::output_page:
            take_page<vexo::wire::VariableRow>(request, reply, seen_.outputs);
            break;
        case Letter::input_page:
            take_page<vexo::wire::VariableRow>(request, reply, seen_.inputs);
            break;
        case Letter::method_page:
            take_page<vexo::wire::MethodRow>(request, reply, seen_.methods);
            break;
        case Letter::output_recipe:
            recipes_.set_up(vexo::wire::recipe_id(reply), request.ids);
            break;
        default:
            break;
    }
}

// A list that is read from its beginning replaces the one before.
template <typename Row, typename Entry>
void Dialogue::take_page(const Request& request, Bytes reply, std::vector<Entry>& list) {
    vexo::wire::Page<Row> page(reply);
    list.resize(std::min<size_t>(list.size(), request.first));
    for (uint8_t i = 0; i < page.count() && list.size() < kMostRows; ++i) {
        Entry entry = entry_of(page.next());
        if (!page.ok()) {
            break;
        }
        list.push_back(std::move(entry));
    }
    recipes_.publish(seen_);
}

}  // namespace capture
