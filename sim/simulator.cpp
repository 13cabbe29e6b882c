#include "sim/simulator.h"

#include <algorithm>
#include <stdexcept>

#include "sim/controller.h"
#include "sim/server.h"

namespace sim {

namespace {

void require(bool condition, const char* what) {
    if (!condition) {
        throw std::invalid_argument(what);
    }
}

Options checked(Options options) {
    require(options.rate > 0 && options.rate <= 1000, "rate: more than 0, at most 1000");
    options.catalogue.check();
    for (const std::string& text :
         {options.versions.firmware, options.versions.hardware, options.versions.bootloader}) {
        require(text.size() <= 255, "versions: a text is longer than 255 characters");
    }
    return options;
}

// A fault that befalls the controller at once.
Fault now(std::optional<Port> port = {}) {
    Fault fault;
    fault.target = Target::controller;
    fault.port = port;
    return fault;
}

}  // namespace

struct Simulator::Parts {
    explicit Parts(const Options& options) : controller(options), server(options, controller) {}

    Controller controller;
    Server server;
};

Simulator::Simulator(Options options)
    : parts_(std::make_unique<Parts>(checked(std::move(options)))) {}

Simulator::~Simulator() = default;

void Simulator::stop() {
    parts_->server.stop();
}

void Simulator::inject(Fault fault) {
    parts_->controller.inject(std::move(fault));
    parts_->server.wake();
    parts_->controller.wait_for_faults();
}

void Simulator::clear_faults() {
    parts_->controller.clear_faults();
    Fault fault = now();
    fault.recover = true;
    inject(fault);
}

void Simulator::reboot(Span down, std::optional<Catalogue> afterwards, Break how) {
    Fault fault = now();
    fault.reboot = down;
    fault.link = how;
    if (afterwards) {
        fault.catalogue = std::make_shared<Catalogue>(std::move(*afterwards));
    }
    inject(fault);
}

void Simulator::take_over(Catalogue catalogue, Versions versions) {
    Fault fault = now();
    fault.reboot = Span(0);
    fault.link = Break::abandon;
    fault.catalogue = std::make_shared<Catalogue>(std::move(catalogue));
    fault.versions = std::move(versions);
    inject(fault);
}

void Simulator::silence(Span span, std::optional<Port> port) {
    Fault fault = now(port);
    fault.silence = span;
    inject(fault);
}

void Simulator::half_open(Span span, std::optional<Port> port) {
    Fault fault = now(port);
    fault.half_open = span;
    inject(fault);
}

void Simulator::refuse(Span span, std::optional<Port> port) {
    Fault fault = now(port);
    fault.refuse = span;
    inject(fault);
}

void Simulator::disconnect(Port port, Break how) {
    Fault fault = now(port);
    fault.disconnect = true;
    fault.link = how;
    inject(fault);
}

void Simulator::change_catalogue(Catalogue catalogue) {
    Fault fault = now();
    fault.catalogue = std::make_shared<Catalogue>(std::move(catalogue));
    inject(fault);
}

std::vector<Simulator::Bytes> Simulator::requests(Port port) const {
    return parts_->controller.with_records([&](const Records& r) { return r.requests(port); });
}

std::vector<SetPoint> Simulator::set_points() const {
    return parts_->controller.with_records([](const Records& r) { return r.set_points(); });
}

std::vector<Input> Simulator::inputs() const {
    return parts_->controller.with_records([](const Records& r) { return r.inputs(); });
}

Counters Simulator::counters() const {
    return parts_->controller.with_records([](const Records& r) { return r.counters; });
}

bool Simulator::wait_for_requests(char letter, uint64_t count, Limit limit) const {
    return parts_->controller.wait([=](const Records& r) { return r.requests_of(letter) >= count; },
                                   limit);
}

bool Simulator::wait_for_set_points(uint64_t count, Limit limit) const {
    return parts_->controller.wait([=](const Records& r) { return r.counters.set_points >= count; },
                                   limit);
}

bool Simulator::wait_for_inputs(uint64_t count, Limit limit) const {
    return parts_->controller.wait([=](const Records& r) { return r.counters.inputs >= count; },
                                   limit);
}

bool Simulator::wait_for_packages(uint64_t count, Limit limit) const {
    return parts_->controller.wait(
        [=](const Records& r) { return r.counters.packages_sent >= count; }, limit);
}

bool Simulator::streaming() const {
    return parts_->controller.streaming();
}

Joints Simulator::joint_positions() const {
    return parts_->controller.with_arm([](const Arm& arm) { return arm.position; });
}

double Simulator::speed_percent() const {
    return parts_->controller.with_arm([](const Arm& arm) { return arm.speed_percent; });
}

uint64_t Simulator::digital_outputs() const {
    return parts_->controller.with_arm([](const Arm& arm) { return arm.digital_outputs; });
}

void Simulator::set_digital_inputs(uint64_t bits) {
    parts_->controller.with_arm([=](Arm& arm) { arm.digital_inputs = bits; });
}

uint32_t Simulator::error_code() const {
    return parts_->controller.with_arm([](const Arm& arm) { return arm.error_code; });
}

void Simulator::raise_error(uint32_t code) {
    parts_->controller.with_arm([=](Arm& arm) { arm.raise_error(code); });
}

bool Simulator::set_output(const std::string& name, const Bytes& value) {
    return parts_->controller.set_output(name, value);
}

Simulator::Bytes Simulator::input(const std::string& name) const {
    return parts_->controller.input(name);
}

}  // namespace sim
