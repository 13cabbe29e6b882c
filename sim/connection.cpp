#include "sim/connection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace sim {

namespace {

constexpr size_t least_message = 3;  // length word and type

// The message that `data` begins with; nothing as long as it is not whole. A length word too small
// for a message makes all of the data one malformed message.
std::optional<BytesView> first_message(BytesView data) {
    if (data.size() < least_message) {
        return std::nullopt;
    }
    const size_t length = Reader(data).number<uint16_t>();
    if (length < least_message) {
        return data;
    }
    return length <= data.size() ? std::optional(data.first(length)) : std::nullopt;
}

}  // namespace

Connection::Connection(Descriptor socket, Port port) : socket_(std::move(socket)), port_(port) {
    const int on = 1;
    setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void Connection::receive(Controller& controller) {
    uint8_t chunk[16384];
    const ssize_t got = recv(socket_.get(), chunk, sizeof chunk, MSG_DONTWAIT);
    if (got == 0 || (got < 0 && errno != EAGAIN)) {
        end(Break::close);
        return;
    }
    if (got > 0 && port_ != Port::stream) {
        received_.insert(received_.end(), chunk, chunk + got);
        take_messages(controller);
    }
}

void Connection::take_messages(Controller& controller) {
    BytesView rest = received_;
    while (!ended() && !ending_) {
        const auto message = first_message(rest);
        if (!message) {
            break;
        }
        const bool framed = Reader(*message).number<uint16_t>() == message->size();
        const auto reply = controller.answer(port_, *message);
        if (reply) {
            deliver(*reply);
        }
        if (!framed && !ended()) {
            // Out of step with the client: no telling where its next message begins.
            outbox_.add({{}, Clock::now(), Break::close});
            ending_ = true;
            flush();
        }
        rest = rest.subspan(message->size());
    }
    received_.erase(received_.begin(), received_.end() - static_cast<ptrdiff_t>(rest.size()));
}

bool Connection::deliver(const Outgoing& out) {
    if (ended() || ending_ || outbox_.full() || (out.fault && out.fault->lost)) {
        return false;
    }
    if (out.fault || !outbox_.empty() || !send_whole(out.message)) {
        queue(out);
        flush();
    }
    return true;
}

// The everyday case, without a detour through the outbox. False: nothing was sent.
bool Connection::send_whole(BytesView message) {
    const ssize_t sent = transmit(message);
    if (sent >= 0 && static_cast<size_t>(sent) < message.size()) {
        const BytesView rest = message.subspan(static_cast<size_t>(sent));
        outbox_.add({Bytes(rest.begin(), rest.end()), Clock::time_point::min()});
        flush();
    }
    return sent >= 0;
}

ssize_t Connection::transmit(BytesView data) {
    return send(socket_.get(), data.data(), data.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

void Connection::queue(const Outgoing& out) {
    const Fault fault = out.fault.value_or(Fault{});
    const size_t size = fault.link == Break::none ? out.message.size()
                                                  : std::min(out.message.size(), fault.link_after);
    auto due = Clock::now() + fault.delay;
    std::vector<size_t> ends = fault.cuts;
    ends.push_back(size);
    size_t begin = 0;
    for (size_t end : ends) {
        end = std::clamp(end, begin, size);
        outbox_.add({Bytes(out.message.begin() + static_cast<ptrdiff_t>(begin),
                           out.message.begin() + static_cast<ptrdiff_t>(end)),
                     due});
        due += fault.pause;
        begin = end;
    }
    if (fault.link != Break::none) {
        outbox_.add({{}, Clock::time_point::min(), fault.link});
        ending_ = true;
    }
}

void Connection::flush() {
    settle(outbox_.flush(Clock::now(), [this](BytesView data) { return transmit(data); }));
}

void Connection::settle(Outbox::Result result) {
    if (result == Outbox::Result::failed || result == Outbox::Result::closes) {
        end(Break::close);
    } else if (result == Outbox::Result::resets) {
        end(Break::reset);
    }
}

void Connection::end(Break how) {
    if (how == Break::reset) {
        const linger hard{1, 0};
        setsockopt(socket_.get(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    }
    socket_.reset();
}

}  // namespace sim
