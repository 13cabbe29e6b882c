// Calls on the virtual serial channels, in any order, beside a model of them.
#include <array>
#include <vector>

#include "fuzz/input.h"
#include "net/serial.h"

using namespace fuzz;

namespace {

constexpr int kChannels = 5;
using Block = std::vector<uint8_t>;

struct Mailbox {
    Block received;
    bool ready = false;
    Block transmitted;
    bool waiting = false;
};

using Mailboxes = std::array<Mailbox, kChannels>;

Block block(Span bytes) {
    Block copy(bytes.begin(), bytes.end());
    copy.shrink_to_fit();
    return copy;
}

bool take_all_channels() {
    int channel = -1;
    for (int i = 0; i < kChannels; ++i) {
        check(tty_connect(nullptr, 0, 0, 0, 0, &channel, nullptr) == 0 && channel == i,
              "each channel can be taken");
    }
    return tty_connect(nullptr, 0, 0, 0, 0, &channel, nullptr) == -1;
}

void drain() {
    uint8_t data[TTY_BLOCK_SIZE];
    while (tty_push_data(nullptr, data, nullptr) == 0) {
    }
    for (int i = 0; i < kChannels; ++i) {
        tty_flush(i);
    }
}

void send(Mailbox* box, int channel, Span bytes) {
    const Block sent = block(bytes);
    const bool taken = box != nullptr && sent.size() <= TTY_BLOCK_SIZE;
    check(tty_send(channel, sent.data(), static_cast<unsigned>(sent.size())) ==
              (taken ? static_cast<long>(sent.size()) : 0),
          "a block is sent whole or not at all");
    if (taken) {
        box->transmitted = sent;
        box->waiting = true;
        box->ready = false;
    }
}

void receive(Mailbox* box, int channel, size_t capacity) {
    Block buffer(capacity);
    const long got = tty_recv(channel, buffer.data(), static_cast<int>(capacity));
    if (box == nullptr || !box->ready) {
        check(got == 0, "nothing is received where nothing waits");
        return;
    }
    const auto end =
        box->received.begin() + static_cast<ptrdiff_t>(std::min(capacity, box->received.size()));
    check(std::equal(box->received.begin(), end, buffer.begin(), buffer.begin() + got),
          "what the pump handed in is received");
    box->received.erase(box->received.begin(), end);
    box->ready = !box->received.empty();
}

void hand_in(Mailbox* box, int channel, Span bytes, int flags) {
    const Block given = block(bytes);
    const int stored =
        tty_pop_data(channel, given.data(), static_cast<unsigned>(given.size()), flags, 0);
    if (box == nullptr || (given.data() == nullptr && !given.empty())) {
        check(stored == 0, "no channel, no block");
        return;
    }
    box->received = given;
    box->received.resize(std::min<size_t>(given.size(), TTY_BLOCK_SIZE));
    box->ready = !box->received.empty();
    box->waiting = box->waiting && (flags & TTY_ACKNOWLEDGE) == 0;
    check(stored == static_cast<int>(box->received.size()), "a long block is cut");
}

void take_out(Mailboxes& boxes) {
    const auto sender =
        std::find_if(boxes.begin(), boxes.end(), [](const Mailbox& box) { return box.waiting; });
    Block data(TTY_BLOCK_SIZE);
    uint32_t length = 0;
    int channel = -1;
    const int result = tty_push_data(&channel, data.data(), &length);
    if (sender == boxes.end()) {
        check(result == -1 && channel == -1, "nothing is taken where nothing waits");
        return;
    }
    data.resize(length);
    check(result == 0 && channel == sender - boxes.begin() && data == sender->transmitted,
          "the lowest channel's block is taken");
    sender->waiting = false;
}

void look(const Mailbox* box, int channel) {
    check(tty_select(channel, nullptr) == (box != nullptr && box->ready ? 1 : 0),
          "a channel says whether data wait");
    check(tty_getinstfd(channel) == (box != nullptr ? channel : -1), "a channel is its number");
}

void drop(Mailbox* box, int channel) {
    const int dropped = tty_flush(channel);
    check(dropped == (box != nullptr ? static_cast<int>(box->received.size()) : 0),
          "a flush says what it dropped");
    if (box != nullptr) {
        *box = {{}, false, box->transmitted, box->waiting};
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool taken = take_all_channels();
    check(taken, "there are five channels");
    drain();
    Mailboxes boxes;
    Input input(data, size);
    while (!input.empty()) {
        const uint8_t call = input.u8();
        const int channel = input.u8() % 8 - 1;
        Mailbox* box =
            channel >= 0 && channel < kChannels ? &boxes[static_cast<size_t>(channel)] : nullptr;
        switch (call % 6) {
            case 0:
                send(box, channel, input.take(input.u16()));
                break;
            case 1:
                receive(box, channel, input.u16());
                break;
            case 2:
                hand_in(box, channel, input.take(input.u16()), call & TTY_ACKNOWLEDGE);
                break;
            case 3:
                take_out(boxes);
                break;
            case 4:
                look(box, channel);
                break;
            default:
                drop(box, channel);
        }
    }
    return 0;
}
