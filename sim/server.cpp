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

constexpr auto kRetryInterval = std::chrono::milliseconds(10);  // of a port that cannot be had

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
      address_(options.address),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (wake_.get() < 0) {
        fail("eventfd");
    }
    for (const Port port : {Port::io, Port::control, Port::stream}) {
        if (std::ranges::count(options.refused_ports, port) == 0) {
            listeners_.push_back({port, listen_on(address_, port)});
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
    stopping_ = true;
    wake();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void Server::wake() {
    eventfd_write(wake_.get(), 1);
}

void Server::run() {
    pthread_setname_np(pthread_self(), "vexo-sim");
    prctl(PR_SET_TIMERSLACK, 1);  // the beat is not to wait for company
    while (!stopping_) {
        now_ = Clock::now();
        tend_listeners();
        poll_descriptors();
        wait();
        now_ = Clock::now();
        serve();
    }
    connections_.clear();
    raw_.reset();
    listeners_.clear();
    controller_.stop();
}

// A negative descriptor keeps its place, and poll passes over it.
void Server::poll_descriptors() {
    polled_.clear();
    polled_.push_back({wake_.get(), POLLIN, 0});
    const bool hears = raw_ && !outages_.half_open(Port::raw, now_);
    polled_.push_back({hears ? raw_->descriptor() : -1, POLLIN, 0});
    for (const Listener& listener : listeners_) {
        const bool accepts = !outages_.half_open(listener.port, now_);
        polled_.push_back({accepts ? listener.socket.get() : -1, POLLIN, 0});
    }
    for (const Connection& connection : connections_) {
        const bool sends = connection.outbox().blocked() && !outages_.mute(connection.port(), now_);
        polled_.push_back({polls(connection) ? connection.descriptor() : -1,
                           static_cast<short>(sends ? POLLIN | POLLOUT : POLLIN), 0});
    }
}

bool Server::polls(const Connection& connection) const {
    return !outages_.half_open(connection.port(), now_) &&
           !(connection.abandoned() && outages_.down(now_));
}

void Server::wait() {
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
    auto event = std::min(outages_.next_end(now_), controller_.next_due());
    if (streaming_) {
        event = std::min(event, next_beat_);
    }
    if (raw_ && !outages_.mute(Port::raw, now_)) {
        event = std::min(event, raw_->outbox().next());
    }
    for (const Listener& listener : listeners_) {
        if (listener.socket.get() < 0 && !outages_.refused(listener.port, now_)) {
            event = std::min(event, now_ + kRetryInterval);
        }
    }
    for (const Connection& connection : connections_) {
        if (!outages_.mute(connection.port(), now_)) {
            event = std::min(event, connection.outbox().next());
        }
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
    befall();
    if (beat()) {
        befall();
    }
    forget_ended();
}

void Server::serve_raw(bool readable) {
    if (readable) {
        raw_->receive(controller_, outages_.silent(Port::raw, now_));
    }
    if (!raw_->outbox().empty() && !outages_.mute(Port::raw, now_)) {
        raw_->flush();
    }
}

void Server::serve_connection(Connection& connection, bool ready) {
    if (ready && !connection.ended()) {
        connection.receive(controller_, outages_.silent(connection.port(), now_));
    }
    if (!connection.ended() && !connection.outbox().empty() &&
        !outages_.mute(connection.port(), now_)) {
        connection.flush();
    }
}

// Packages are due at fixed times after the start, however late this thread gets to them. Returns
// whether the package met a fault.
bool Server::beat() {
    const bool streaming = controller_.streaming();
    if (streaming && !streaming_) {
        next_beat_ = now_ + controller_.period();
    }
    streaming_ = streaming;
    if (!streaming_ || now_ < next_beat_) {
        return false;
    }
    next_beat_ += controller_.period();
    controller_.next_package(package_);
    controller_.package_done(stream(package_));
    return package_.fault.has_value();
}

bool Server::stream(const Outgoing& package) {
    const auto client = raw_ ? controller_.raw_client() : std::nullopt;
    if (outages_.mute(client ? Port::raw : Port::stream, now_)) {
        return false;
    }
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
        in_session_ = true;
    }
    connections_.emplace_back(std::move(socket), listener.port);
}

// What is due to befall the controller.
void Server::befall() {
    while (const auto fault = controller_.due_fault()) {
        if (fault->recover) {
            outages_.end();
        }
        outages_.begin(*fault, now_);
        tend_listeners();  // first, so that who loses a connection finds the port as it is to be
        if (fault->disconnect || fault->reboot) {
            disconnect(*fault);
        }
        if (fault->reboot && raw_) {
            raw_->restart();
        }
        controller_.carry_out(*fault);
    }
}

void Server::disconnect(const Fault& fault) {
    const Break how = fault.link != Break::none ? fault.link : Break::reset;
    for (Connection& connection : connections_) {
        const bool meant = fault.reboot || !fault.port || connection.port() == *fault.port;
        if (meant && !connection.ended()) {
            connection.end(how);
        }
    }
}

// Opens and closes ports as the outages ask. Somebody else may have a port by now: then it is tried
// again.
void Server::tend_listeners() {
    for (Listener& listener : listeners_) {
        const bool refused = outages_.refused(listener.port, now_);
        if (refused) {
            listener.socket.reset();
        } else if (listener.socket.get() < 0) {
            try {
                listener.socket = listen_on(address_, listener.port);
            } catch (const std::system_error&) {
            }
        }
    }
}

// The session is that of the newest connection to the IO port, and ends with it.
void Server::forget_ended() {
    const auto newest =
        std::find_if(connections_.rbegin(), connections_.rend(),
                     [](const Connection& connection) { return connection.port() == Port::io; });
    const bool over = newest == connections_.rend() || newest->ended() || newest->abandoned();
    if (in_session_ && over) {
        controller_.reset_session();
        in_session_ = false;
    }
    std::erase_if(connections_, [](const Connection& connection) { return connection.ended(); });
}

}  // namespace sim
