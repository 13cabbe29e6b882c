#include "sim/spoil.h"

#include <random>

#include "sim/exchange.h"

namespace sim {

namespace {

constexpr size_t kCountOffset = kReplyHeaderSize;
constexpr size_t kPackageRecipeOffset = 3;

// Where the first so many entries of a catalogue page end.
size_t end_of_entries(const Bytes& page, size_t count) {
    const size_t behind_name = page[2] == 'M' ? sizeof(uint16_t) : sizeof(uint32_t) + 1;
    size_t at = kCountOffset + 1;
    for (size_t i = 0; i < count && at < page.size(); ++i) {
        at += 1 + page[at] + behind_name;
    }
    return std::min(at, page.size());
}

void shorten_page(Bytes& page, size_t most) {
    if (page.size() > kCountOffset && page[kCountOffset] > most) {
        page.resize(end_of_entries(page, most));
        page[kCountOffset] = static_cast<uint8_t>(most);
    }
}

void put(Bytes& message, size_t at, std::optional<uint8_t> value) {
    if (value && at < message.size()) {
        message[at] = *value;
    }
}

void change_contents(Bytes& message, const Fault& fault) {
    if (fault.empty_page) {
        message.resize(kReplyHeaderSize);
        message.push_back(0);
    }
    if (fault.entries) {
        shorten_page(message, *fault.entries);
    }
    put(message, kCountOffset, fault.count);
    put(message, fault.target == Target::package ? kPackageRecipeOffset : kReplyHeaderSize,
        fault.recipe_id);
    if (fault.bytes) {
        message = *fault.bytes;
    }
    if (fault.size) {
        message.resize(*fault.size);
    }
}

void change_header(Bytes& message, const Fault& fault) {
    if (message.size() >= 2 && (fault.length_word || !fault.bytes)) {
        set_length_word(message, fault.length_word.value_or(static_cast<uint16_t>(message.size())));
    }
    if (message.size() >= 3 && fault.other_letter) {
        message[2] = static_cast<uint8_t>(*fault.other_letter);
    }
}

void damage(Bytes& message, const Fault& fault) {
    for (const size_t at : fault.inverted) {
        if (at < message.size()) {
            message[at] ^= 0xFF;
        }
    }
    std::minstd_rand random(fault.seed);
    for (size_t i = 0; i < fault.noise && !message.empty(); ++i) {
        message[random() % message.size()] ^= static_cast<uint8_t>(1 + random() % 255);
    }
}

}  // namespace

void spoil(Bytes& message, const Fault& fault) {
    change_contents(message, fault);
    change_header(message, fault);
    damage(message, fault);
    message.insert(message.begin(), fault.stray.begin(), fault.stray.end());
}

}  // namespace sim
