#include "sim/controller.h"

#include "sim/spoil.h"

namespace sim {

namespace {

Bytes reply_header(char letter, Status status) {
    Bytes reply(kReplyHeaderSize);
    reply[2] = static_cast<uint8_t>(letter);
    reply[3] = static_cast<uint8_t>(status);
    return reply;
}

const Fault harmless;

double seconds(Span span) {
    return std::chrono::duration<double>(span).count();
}

}  // namespace

Controller::Service::Service(const Identity& as, Arm& arm, Records& records, const Replay* replay)
    : catalogue(as.catalogue),
      variables(*catalogue),
      exchange(*catalogue, as.versions, arm, variables, records) {
    if (replay != nullptr) {
        replayed = variables.hold(replay->variables());
    }
}

Controller::Controller(const Options& options)
    : replay_(options.replay),
      rated_{1 / options.rate},
      timing_(rated_),
      caught_up_(Clock::now()),
      records_(options.history),
      identity_{std::make_shared<Catalogue>(options.catalogue), options.versions},
      latest_(identity_.catalogue) {
    begin_service();
}

void Controller::begin_service() {
    service_ = std::make_unique<Service>(identity_, arm_, records_, replay_.get());
    if (own_mac_) {
        service_->exchange.offer_raw_path(*own_mac_);
    }
    renewed_ = false;
}

void Controller::begin_session() {
    if (renewed_) {
        begin_service();
    }
    session() = Session{};
}

// What the world outside applies to the digital inputs stays.
void Controller::restart() {
    Arm arm;
    arm.digital_inputs = arm_.digital_inputs;
    arm_ = arm;
    timing_.random.seed();
    begin_service();
}

void Controller::offer_raw_path(const MacAddress& own) {
    const std::lock_guard lock(mutex_);
    own_mac_ = own;
    service_->exchange.offer_raw_path(own);
}

void Controller::connected() {
    const std::lock_guard lock(mutex_);
    ++records_.counters.connections;
}

void Controller::reset_session() {
    const std::lock_guard lock(mutex_);
    catch_up();
    begin_session();
}

bool Controller::streaming() const {
    const std::lock_guard lock(mutex_);
    return session().streaming;
}

std::optional<MacAddress> Controller::raw_client() const {
    const std::lock_guard lock(mutex_);
    return session().raw_client;
}

Clock::duration Controller::period() const {
    const std::lock_guard lock(mutex_);
    if (replay_) {
        return replay_->interval();
    }
    const std::chrono::duration<double> period(timing_.period / timing_.speed);
    return std::chrono::duration_cast<Clock::duration>(period);
}

// While packages are streamed, each of them lets one cycle pass. Otherwise the arm moves on only
// when somebody asks.
void Controller::catch_up() {
    const auto now = Clock::now();
    const double passed = std::chrono::duration<double>(now - caught_up_).count() * timing_.speed;
    if (!session().streaming && passed > 0) {
        arm_.advance(passed);
    }
    caught_up_ = now;
}

std::optional<Outgoing> Controller::answer(Port port, BytesView message) {
    const std::lock_guard lock(mutex_);
    catch_up();
    const char letter = message.size() > 2 ? static_cast<char>(message[2]) : '\0';
    Exchange& exchange = service_->exchange;
    const bool answered = letter != 'U' && !(port == Port::raw && session().nack);
    Outgoing out;
    if (answered) {
        out.fault = faults_.meet(
            {Target::reply, port, letter, message, exchange.method_name(message)}, caught_up_);
    }
    out.message = reply_header(letter, Status::accepted);
    const Status status = out.fault && out.fault->status
                              ? static_cast<Status>(*out.fault->status)
                              : exchange.carry_out(port, message, out.message);
    records_.add_request(port, message, status != Status::accepted);
    changed_.notify_all();
    if (!answered) {
        return std::nullopt;
    }
    if (status != Status::accepted) {
        out.message = reply_header(letter, status);
    }
    dispatch(Target::reply, session().replied, out);
    return out;
}

void Controller::overhear(Port port, BytesView message) {
    const std::lock_guard lock(mutex_);
    records_.add_request(port, message, false);
    changed_.notify_all();
}

void Controller::next_package(Outgoing& out) {
    const std::lock_guard lock(mutex_);
    const Port port = session().raw_client ? Port::raw : Port::stream;
    out.fault = faults_.meet({Target::package, port, 'U', {}, {}}, Clock::now());
    if (replay_) {
        replay_package();
    }
    if (!out.fault || !out.fault->frozen) {
        arm_.advance(timing_.period);
        arm_.package += 1 + (out.fault ? out.fault->missed : 0);
        arm_.ahead = timing_.jitter * share(timing_.random);
    }
    const Recipe& recipe = session().output;
    out.message.assign({0, 0, 'U', recipe.id});
    Writer values(out.message);
    write_values(recipe, arm_, values);
    dispatch(Target::package, session().streamed, out);
}

// Each start begins with the first one.
void Controller::replay_package() {
    if (arm_.package == 0) {
        replay_->rewind();
    }
    Reader values(replay_->next());
    size_t number = 0;
    for (Slot* slot : service_->replayed) {
        const BytesView value = values.bytes(width(replay_->variables()[number++].type));
        if (slot != nullptr) {
            slot->held.assign(value.begin(), value.end());
        }
    }
}

// The last that happens to a message here: what it says is spoilt, and what else comes of it.
void Controller::dispatch(Target target, size_t& total, Outgoing& out) {
    if (!out.fault) {
        out.fault = faults_.meet_total(target, total, total + out.message.size());
    }
    spoil(out.message, out.fault ? *out.fault : harmless);
    total += out.message.size();
    if (out.fault && out.fault->befalls_controller()) {
        Fault consequence = *out.fault;
        consequence.target = Target::controller;
        consequence.times = 1;
        consequence.at = Span(0);
        faults_.add(std::move(consequence), Clock::now());
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

std::optional<Fault> Controller::due_fault() {
    const std::lock_guard lock(mutex_);
    auto fault = faults_.due(Clock::now());
    carrying_out_ = fault.has_value();
    return fault;
}

Clock::time_point Controller::next_due() const {
    const std::lock_guard lock(mutex_);
    return faults_.next_due();
}

void Controller::carry_out(const Fault& fault) {
    const std::lock_guard lock(mutex_);
    catch_up();
    disturb_clock(fault);
    if (fault.error) {
        arm_.raise_error(*fault.error);
    }
    if (fault.catalogue || fault.versions) {
        identity_.catalogue = fault.catalogue ? fault.catalogue : identity_.catalogue;
        identity_.versions = fault.versions.value_or(identity_.versions);
        renewed_ = true;
    }
    if (fault.reboot) {
        restart();
    }
    carrying_out_ = false;
    changed_.notify_all();
}

void Controller::disturb_clock(const Fault& fault) {
    if (fault.recover) {
        timing_ = rated_;
    }
    timing_.period = fault.rate ? 1 / *fault.rate : timing_.period;
    timing_.speed = fault.drift ? 1 + *fault.drift * 1e-6 : timing_.speed;
    timing_.jitter = fault.clock_jitter ? seconds(*fault.clock_jitter) : timing_.jitter;
    if (fault.clock_jitter) {
        timing_.random.seed(fault.seed);
    }
    arm_.time += seconds(fault.clock_step.value_or(Span(0)));
}

void Controller::stop() {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
    changed_.notify_all();
}

// A catalogue is edited here, so that who injects the fault is told what is wrong with it.
void Controller::inject(Fault fault) {
    const std::lock_guard lock(mutex_);
    if (fault.catalogue || !fault.edits.empty()) {
        Catalogue edited = fault.catalogue ? *fault.catalogue : *latest_;
        for (const auto& edit : fault.edits) {
            edit(edited);
        }
        edited.check();
        fault.catalogue = latest_ = std::make_shared<Catalogue>(std::move(edited));
        fault.edits.clear();
    }
    faults_.add(std::move(fault), Clock::now());
}

void Controller::wait_for_faults() const {
    std::unique_lock lock(mutex_);
    const auto now = Clock::now();
    changed_.wait(lock, [&] { return stopped_ || (!carrying_out_ && faults_.next_due() > now); });
}

void Controller::clear_faults() {
    const std::lock_guard lock(mutex_);
    faults_.clear();
}

bool Controller::set_output(const std::string& name, const Bytes& value) {
    const std::lock_guard lock(mutex_);
    return service_->variables.set_output(name, value);
}

Bytes Controller::input(const std::string& name) const {
    const std::lock_guard lock(mutex_);
    return service_->variables.input(name);
}

bool Controller::wait(const std::function<bool(const Records&)>& condition,
                      std::chrono::milliseconds limit) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return condition(records_); });
}

}  // namespace sim
