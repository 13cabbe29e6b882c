#include "sim/connection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace sim {

namespace {

constexpr size_t kLeastMessage = 3;  // length word and type

// The message that `data` begins with; nothing as long as it is not whole. A length word too small
// for a message makes all of the data one malformed message.
std::optional<BytesView> first_message(BytesView data) {
    if (data.size() < kLeastMessage) {
        return std::nullopt;
    }
    const size_t length = Reader(data).number<uint16_t>();
    if (length < kLeastMessage) {
        return data;
    }
    return length <= data.size() ? std::optional(data.first(length)) : std::nullopt;
}

// A message in the pieces that a fault cuts it into.
std::vector<BytesView> pieces(BytesView message, const Fault& fault) {
    std::vector<size_t> ends = fault.cuts;
    for (size_t end = fault.pieces; end != 0 && end < message.size(); end += fault.pieces) {
        ends.push_back(end);
    }
    ends.push_back(message.size());
    std::vector<BytesView> result;
    size_t begin = 0;
    for (size_t end : ends) {
        end = std::clamp(end, begin, message.size());
        result.push_back(message.subspan(begin, end - begin));
        begin = end;
    }
    return result;
}

}  // namespace

Connection::Connection(Descriptor socket, Port port) : socket_(std::move(socket)), port_(port) {
    const int on = 1;
    setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void Connection::receive(Controller& controller, bool silent) {
    uint8_t chunk[16384];
    const ssize_t got = recv(socket_.get(), chunk, sizeof chunk, MSG_DONTWAIT);
    if (got == 0 || (got < 0 && errno != EAGAIN)) {
        end(Break::close);
    } else if (got > 0 && abandoned_) {
        end(Break::reset);
    } else if (got > 0 && port_ != Port::stream) {
        received_.insert(received_.end(), chunk, chunk + got);
        take_messages(controller, silent);
    }
}

void Connection::take_messages(Controller& controller, bool silent) {
    BytesView rest = received_;
    while (!ended() && !ending_ && !abandoned_) {
        const auto message = first_message(rest);
        if (!message) {
            break;
        }
        if (silent) {
            controller.overhear(port_, *message);
        } else {
            answer(*message, controller);
        }
        rest = rest.subspan(message->size());
    }
    received_.erase(received_.begin(), received_.end() - static_cast<ptrdiff_t>(rest.size()));
}

void Connection::answer(BytesView message, Controller& controller) {
    const auto reply = controller.answer(port_, message);
    if (reply) {
        deliver(*reply);
    }
    const bool framed = Reader(message).number<uint16_t>() == message.size();
    if (!framed && !ended()) {
        // Out of step with the client: no telling where its next message begins.
        outbox_.add({{{}, Clock::now(), Break::close}});
        ending_ = true;
        flush();
    }
}

bool Connection::deliver(const Outgoing& out) {
    const bool open = !ended() && !ending_ && !abandoned_;
    if (!open || outbox_.full() || (out.fault && out.fault->lost)) {
        return false;
    }
    if (out.fault || !outbox_.empty() || !send_whole(out.message)) {
        queue(out.message, out.fault.value_or(Fault{}));
        flush();
    }
    return true;
}

// The everyday case, without a detour through the outbox. False: nothing was sent.
bool Connection::send_whole(BytesView message) {
    const ssize_t sent = transmit(message);
    if (sent >= 0 && static_cast<size_t>(sent) < message.size()) {
        const BytesView rest = message.subspan(static_cast<size_t>(sent));
        outbox_.add({{Bytes(rest.begin(), rest.end()), Clock::time_point::min()}});
        flush();
    }
    return sent >= 0;
}

ssize_t Connection::transmit(BytesView data) {
    return send(socket_.get(), data.data(), data.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

void Connection::queue(BytesView message, const Fault& fault) {
    const auto begin = Clock::now();
    const size_t size = std::min(message.size(), fault.link_after);
    std::vector<Outbox::Item> items;
    for (int copy = 0; copy < (fault.doubled ? 2 : 1); ++copy) {
        Span late = fault.delay;
        for (const BytesView piece : pieces(message.first(size), fault)) {
            items.push_back({Bytes(piece.begin(), piece.end()), after(begin, late)});
            late += fault.pause;
        }
    }
    if (fault.link != Break::none && !fault.befalls_controller()) {
        items.push_back({{}, Clock::time_point::min(), fault.link});
        ending_ = true;
    }
    outbox_.add(std::move(items), fault);
}

void Connection::flush() {
    const Break how =
        outbox_.flush(Clock::now(), [this](BytesView data) { return transmit(data); });
    if (how != Break::none) {
        end(how);
    }
}

void Connection::end(Break how) {
    if (how == Break::abandon) {
        abandoned_ = true;
        outbox_ = {};
        return;
    }
    if (how == Break::reset) {
        const linger hard{1, 0};
        setsockopt(socket_.get(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    }
    socket_.reset();
}

}  // namespace sim
