#include "sim/server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <system_error>

namespace sim {

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

Descriptor listen_on(const std::string& address, Port port) {
    const auto number = static_cast<uint16_t>(port);
    const std::string what = "cannot listen on " + address + ":" + std::to_string(number);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(number);
    if (inet_pton(AF_INET, address.c_str(), &local.sin_addr) != 1) {
        throw std::system_error(EINVAL, std::generic_category(), what);
    }
    Descriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(listener.get(), reinterpret_cast<sockaddr*>(&local), sizeof local) != 0 ||
        listen(listener.get(), 16) != 0) {
        fail(what);
    }
    return listener;
}

}  // namespace

Server::Server(const Options& options, Controller& controller)
    : controller_(controller),
      period_(std::chrono::duration_cast<Clock::duration>(
          std::chrono::duration<double>(1 / options.rate))),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (wake_.get() < 0) {
        fail("eventfd");
    }
    for (const Port port : {Port::io, Port::control, Port::stream}) {
        if (std::ranges::count(options.refused_ports, port) == 0) {
            listeners_.push_back({port, listen_on(options.address, port)});
        }
    }
    if (!options.interface.empty()) {
        raw_.emplace(options.interface, options.mac);
        controller_.offer_raw_path(raw_->mac());
    }
    thread_ = std::thread([this] { run(); });
}

Server::~Server() {
    stop();
}

void Server::stop() {
    {
        const std::lock_guard lock(orders_mutex_);
        stopping_ = true;
    }
    wake();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void Server::disconnect(Port port, Break how) {
    {
        const std::lock_guard lock(orders_mutex_);
        disconnects_.push_back({port, how});
    }
    wake();
}

void Server::wake() {
    eventfd_write(wake_.get(), 1);
}

void Server::run() {
    pthread_setname_np(pthread_self(), "vexo-sim");
    prctl(PR_SET_TIMERSLACK, 1);  // the beat is not to wait for company
    for (;;) {
        {
            const std::lock_guard lock(orders_mutex_);
            if (stopping_) {
                break;
            }
        }
        wait();
        serve();
    }
    connections_.clear();
    raw_.reset();
    listeners_.clear();
}

void Server::wait() {
    polled_.clear();
    polled_.push_back({wake_.get(), POLLIN, 0});
    polled_.push_back({raw_ ? raw_->descriptor() : -1, POLLIN, 0});
    for (const Listener& listener : listeners_) {
        polled_.push_back({listener.socket.get(), POLLIN, 0});
    }
    for (const Connection& connection : connections_) {
        const int events = connection.outbox().blocked() ? POLLIN | POLLOUT : POLLIN;
        polled_.push_back({connection.descriptor(), static_cast<short>(events), 0});
    }
    const Clock::time_point event = next_event();
    if (event == Clock::time_point::max()) {
        ppoll(polled_.data(), polled_.size(), nullptr, nullptr);
        return;
    }
    const auto left = std::max(event - Clock::now(), Clock::duration::zero());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    const timespec timeout{seconds.count(), std::chrono::nanoseconds(left - seconds).count()};
    ppoll(polled_.data(), polled_.size(), &timeout, nullptr);
}

// When something is to be done even though nothing arrives.
Clock::time_point Server::next_event() const {
    auto event = streaming_ ? next_beat_ : Clock::time_point::max();
    if (raw_) {
        event = std::min(event, raw_->outbox().next().value_or(Clock::time_point::max()));
    }
    for (const Connection& connection : connections_) {
        event = std::min(event, connection.outbox().next().value_or(Clock::time_point::max()));
    }
    return event;
}

// Goes through what wait() found. New connections come before old ones, so that whatever an older
// one asks for finds them.
void Server::serve() {
    auto polled = polled_.begin();
    if ((polled++)->revents != 0) {
        eventfd_t ignored = 0;
        eventfd_read(wake_.get(), &ignored);
        carry_out_disconnects();
    }
    if (raw_) {
        serve_raw(polled->revents != 0);
    }
    ++polled;
    const size_t count = connections_.size();
    for (const Listener& listener : listeners_) {
        if ((polled++)->revents != 0) {
            accept_on(listener);
        }
    }
    for (size_t i = 0; i < count; ++i) {
        serve_connection(connections_[i], (polled++)->revents != 0);
    }
    beat(Clock::now());
    forget_ended();
}

void Server::serve_raw(bool readable) {
    if (readable) {
        raw_->receive(controller_);
    }
    if (!raw_->outbox().empty()) {
        raw_->flush();
    }
}

void Server::serve_connection(Connection& connection, bool ready) {
    if (ready && !connection.ended()) {
        connection.receive(controller_);
    }
    if (!connection.ended() && !connection.outbox().empty()) {
        connection.flush();
    }
}

// Packages are due at fixed times after the start, however late this thread gets to them.
void Server::beat(Clock::time_point now) {
    const bool streaming = controller_.streaming();
    if (streaming && !streaming_) {
        next_beat_ = now + period_;
    }
    streaming_ = streaming;
    if (streaming_ && now >= next_beat_) {
        next_beat_ += period_;
        controller_.next_package(package_);
        controller_.package_done(stream(package_));
    }
}

bool Server::stream(const Outgoing& package) {
    const auto client = raw_ ? controller_.raw_client() : std::nullopt;
    if (client) {
        return raw_->deliver(FrameCode::package, *client, package);
    }
    bool sent = false;
    for (Connection& connection : connections_) {
        if (connection.port() == Port::stream) {
            sent = connection.deliver(package) || sent;
        }
    }
    return sent;
}

void Server::accept_on(const Listener& listener) {
    Descriptor socket(accept4(listener.socket.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (socket.get() < 0) {
        return;
    }
    controller_.connected();
    if (listener.port == Port::io) {
        controller_.reset_session();
    }
    connections_.emplace_back(std::move(socket), listener.port);
}

void Server::carry_out_disconnects() {
    std::vector<Disconnect> orders;
    {
        const std::lock_guard lock(orders_mutex_);
        orders.swap(disconnects_);
    }
    for (const Disconnect& order : orders) {
        for (Connection& connection : connections_) {
            if (connection.port() == order.port && !connection.ended()) {
                connection.end(order.how);
            }
        }
    }
}

// The session is that of the newest connection to the IO port, and ends with it.
void Server::forget_ended() {
    const auto newest =
        std::find_if(connections_.rbegin(), connections_.rend(),
                     [](const Connection& connection) { return connection.port() == Port::io; });
    if (newest != connections_.rend() && newest->ended()) {
        controller_.reset_session();
    }
    std::erase_if(connections_, [](const Connection& connection) { return connection.ended(); });
}

}  // namespace sim
