#include "net/serial.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "base/slot_table.h"
#include "net/out.h"
#include "net/serial_line.h"
#include "net/wait.h"

namespace {

enum class Kind : uint8_t { mailbox = 0, device = 1 };
enum class Transmit : uint8_t { idle = 0, waiting = 1, taken = 2 };

constexpr int kNoDescriptor = -1;
constexpr uint8_t kReceiving = 3;

struct Channel {
    int32_t fd;  // kNoDescriptor, a device's descriptor, or the own number of a mailbox
    Kind kind;

    // Only mailboxes use what follows.
    bool receive_ready;     // the pump has handed in data that may be read
    uint8_t receive_state;  // `kReceiving` once the mailbox is set up; tells a debugger only
    Transmit transmit_state;
    uint16_t receive_count;
    uint16_t transmit_count;
    uint8_t receive_buffer[TTY_BLOCK_SIZE];
    uint8_t transmit_buffer[TTY_BLOCK_SIZE];
};

bool ttyInstsinit;
vexo::InUseFlag ttyInstsuse[5];
Channel ttyInsts[5];
// Calls on a channel look at its number alone, not at whether it is taken.
constinit const vexo::SlotTable channels(ttyInstsuse, ttyInsts);

void clear_all_channels_once() {
    if (!ttyInstsinit) {
        for (Channel& channel : ttyInsts) {
            channel.fd = kNoDescriptor;
        }
        ttyInstsinit = true;
    }
}

void tty_start_receive(Channel& channel) {
    channel.receive_ready = false;
    channel.receive_state = kReceiving;
}

void make_mailbox(Channel& channel) {
    tty_start_receive(channel);
    channel.kind = Kind::mailbox;
    channel.receive_count = 0;
    channel.transmit_count = 0;
    channel.transmit_state = Transmit::idle;
    channel.fd = static_cast<int32_t>(&channel - ttyInsts);
}

long put_block(Channel& mailbox, const void* data, unsigned int length) {
    if (length > 0) {
        std::memcpy(mailbox.transmit_buffer, data, length);
    }
    mailbox.transmit_count = static_cast<uint16_t>(length);
    mailbox.receive_ready = false;  // what was received stays counted, but is withdrawn: documented
    mailbox.transmit_state = Transmit::waiting;
    return length;
}

long take_received(Channel& mailbox, void* buffer, size_t capacity) {
    if (!mailbox.receive_ready) {
        return 0;
    }
    const size_t count = std::min<size_t>(capacity, mailbox.receive_count);
    if (count > 0) {
        std::memcpy(buffer, mailbox.receive_buffer, count);
    }
    mailbox.receive_count = static_cast<uint16_t>(mailbox.receive_count - count);
    std::memmove(mailbox.receive_buffer, mailbox.receive_buffer + count, mailbox.receive_count);
    mailbox.receive_ready = mailbox.receive_count > 0;
    return static_cast<long>(count);
}

int drop_received(Channel& mailbox) {
    const int dropped = mailbox.receive_count;
    mailbox.receive_count = 0;
    tty_start_receive(mailbox);
    return dropped;
}

}  // namespace

int tty_connect(const char* device, unsigned int baud, unsigned int data_bits, int stop_bits,
                int parity, int* channel, termios* saved) {
    clear_all_channels_once();
    const int32_t number = channels.request([&](Channel& chosen) {
        if (device == nullptr || *device == '\0') {
            make_mailbox(chosen);
            return true;
        }
        chosen.kind = Kind::device;
        return vexo::tty_local_connect(device, baud, static_cast<uint8_t>(data_bits),
                                       static_cast<uint8_t>(stop_bits), static_cast<int8_t>(parity),
                                       &chosen.fd, saved) == 0;
    });
    vexo::store(channel, number);
    return number < 0 ? -1 : 0;
}

int tty_getinstfd(int channel) {
    const Channel* const found = channels.at(channel);
    return found == nullptr ? -1 : found->fd;
}

long tty_send(int channel, const void* data, unsigned int length) {
    Channel* const found = channels.at(channel);
    if (found == nullptr || length > TTY_BLOCK_SIZE) {
        return 0;
    }
    if (found->kind == Kind::device) {
        return write(found->fd, data, length);
    }
    return data == nullptr && length > 0 ? 0 : put_block(*found, data, length);
}

long tty_recv(int channel, void* buffer, int capacity) {
    Channel* const found = channels.at(channel);
    if (found == nullptr) {
        return 0;
    }
    const size_t room = buffer == nullptr || capacity < 0 ? 0 : static_cast<size_t>(capacity);
    return found->kind == Kind::device ? read(found->fd, buffer, room)
                                       : take_received(*found, buffer, room);
}

int tty_select(int channel, timeval* limit) {
    const Channel* const found = channels.at(channel);
    if (found == nullptr) {
        return 0;
    }
    return found->kind == Kind::device ? vexo::wait_readable(found->fd, limit)
                                       : static_cast<int>(found->receive_ready);
}

int tty_flush(int channel) {
    Channel* const found = channels.at(channel);
    if (found == nullptr) {
        return 0;
    }
    return found->kind == Kind::device ? tcflush(found->fd, TCIOFLUSH) : drop_received(*found);
}

int tty_pop_data(int channel, const uint8_t* data, unsigned int length, int flags, int) {
    Channel* const found = channels.at(channel);
    if (found == nullptr || found->kind == Kind::device || (data == nullptr && length > 0)) {
        return 0;
    }
    if ((flags & TTY_ACKNOWLEDGE) != 0) {
        found->transmit_state = Transmit::idle;
    }
    const auto count = static_cast<uint16_t>(std::min<unsigned int>(length, TTY_BLOCK_SIZE));
    if (count > 0) {
        std::memcpy(found->receive_buffer, data, count);
    }
    found->receive_count = count;
    found->receive_ready = count > 0;
    return count;
}

int tty_push_data(int* channel, uint8_t* data, uint32_t* length) {
    int32_t number = 0;
    while (channels.find(number) != nullptr &&
           channels[number].transmit_state != Transmit::waiting) {
        ++number;
    }
    Channel* const sender = channels.find(number);
    if (sender == nullptr) {
        return -1;
    }
    vexo::store(channel, number);
    vexo::store(length, sender->transmit_count);
    if (data != nullptr) {
        std::memcpy(data, sender->transmit_buffer, sender->transmit_count);
    }
    sender->transmit_state = Transmit::taken;
    return 0;
}
