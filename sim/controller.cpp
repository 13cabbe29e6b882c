#include "sim/controller.h"

namespace sim {

namespace {

Bytes reply_header(char letter, Status status) {
    Bytes reply(reply_header_size);
    reply[2] = static_cast<uint8_t>(letter);
    reply[3] = static_cast<uint8_t>(status);
    return reply;
}

// Changes what a message says, as the fault asks.
void spoil(Bytes& message, const Fault& fault) {
    if (fault.empty_page) {
        message.resize(reply_header_size);
        message.push_back(0);
    }
    if (fault.bytes) {
        message = *fault.bytes;
    }
    if (fault.size) {
        message.resize(*fault.size);
    }
    if (message.size() >= 2 && (fault.length_word || !fault.bytes)) {
        set_length_word(message, fault.length_word.value_or(static_cast<uint16_t>(message.size())));
    }
    if (message.size() >= 3 && fault.other_letter) {
        message[2] = static_cast<uint8_t>(*fault.other_letter);
    }
}

}  // namespace

Controller::Controller(const Options& options)
    : catalogue_(options.catalogue),
      period_(1 / options.rate),
      caught_up_(Clock::now()),
      variables_(catalogue_),
      records_(options.history),
      exchange_(catalogue_, options.versions, arm_, variables_, records_) {}

void Controller::offer_raw_path(const MacAddress& own) {
    const std::lock_guard lock(mutex_);
    exchange_.offer_raw_path(own);
}

void Controller::connected() {
    const std::lock_guard lock(mutex_);
    ++records_.counters.connections;
}

void Controller::reset_session() {
    const std::lock_guard lock(mutex_);
    catch_up();
    exchange_.session = Session{};
}

bool Controller::streaming() const {
    const std::lock_guard lock(mutex_);
    return exchange_.session.streaming;
}

std::optional<MacAddress> Controller::raw_client() const {
    const std::lock_guard lock(mutex_);
    return exchange_.session.raw_client;
}

// While packages are streamed, each of them lets one cycle pass. Otherwise the arm moves on only
// when somebody asks.
void Controller::catch_up() {
    const auto now = Clock::now();
    const double seconds = std::chrono::duration<double>(now - caught_up_).count();
    if (!exchange_.session.streaming && seconds > 0) {
        arm_.advance(seconds);
    }
    caught_up_ = now;
}

std::optional<Outgoing> Controller::answer(Port port, BytesView message) {
    const std::lock_guard lock(mutex_);
    catch_up();
    const char letter = message.size() > 2 ? static_cast<char>(message[2]) : '\0';
    const bool answered = letter != 'U' && !(port == Port::raw && exchange_.session.nack);
    Outgoing out;
    if (answered) {
        out.fault = faults_.meet(Target::reply, letter, exchange_.method_name(message));
    }
    out.message = reply_header(letter, Status::accepted);
    const Status status = out.fault && out.fault->status
                              ? static_cast<Status>(*out.fault->status)
                              : exchange_.carry_out(port, message, out.message);
    records_.add_request(port, message, status != Status::accepted);
    changed_.notify_all();
    if (!answered) {
        return std::nullopt;
    }
    if (status != Status::accepted) {
        out.message = reply_header(letter, status);
    }
    spoil(out.message, out.fault.value_or(Fault{}));
    return out;
}

void Controller::next_package(Outgoing& out) {
    const std::lock_guard lock(mutex_);
    arm_.advance(period_);
    ++arm_.package;
    const Recipe& recipe = exchange_.session.output;
    out.message.assign({0, 0, 'U', recipe.id});
    Writer values(out.message);
    write_values(recipe, arm_, values);
    set_length_word(out.message, out.message.size());
    out.fault = faults_.meet(Target::package, 'U', {});
    if (out.fault) {
        spoil(out.message, *out.fault);
    }
}

void Controller::package_done(bool sent) {
    const std::lock_guard lock(mutex_);
    ++(sent ? records_.counters.packages_sent : records_.counters.packages_dropped);
    changed_.notify_all();
}

void Controller::frame_rejected() {
    const std::lock_guard lock(mutex_);
    ++records_.counters.frames_rejected;
    changed_.notify_all();
}

void Controller::inject(const Fault& fault) {
    const std::lock_guard lock(mutex_);
    faults_.add(fault);
}

void Controller::clear_faults() {
    const std::lock_guard lock(mutex_);
    faults_.clear();
}

bool Controller::set_output(const std::string& name, const Bytes& value) {
    const std::lock_guard lock(mutex_);
    return variables_.set_output(name, value);
}

Bytes Controller::input(const std::string& name) const {
    const std::lock_guard lock(mutex_);
    return variables_.input(name);
}

bool Controller::wait(const std::function<bool(const Records&)>& condition,
                      std::chrono::milliseconds limit) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return condition(records_); });
}

}  // namespace sim
