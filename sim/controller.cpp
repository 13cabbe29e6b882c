#include "sim/controller.h"

#include <algorithm>

namespace sim {

namespace {

constexpr size_t header_size = 7;

// A value that tells which variable it is, for outputs the arm knows nothing of.
Bytes id_pattern(uint32_t id, size_t length) {
    Bytes pattern(length);
    for (size_t i = 0; i < length; ++i) {
        pattern[i] = static_cast<uint8_t>(id >> (i % sizeof id * 8));
    }
    return pattern;
}

void put_name(Writer& out, const std::string& name) {
    out.number(static_cast<uint8_t>(name.size()));
    out.bytes({reinterpret_cast<const uint8_t*>(name.data()), name.size()});
}

// The entries of a page from row `first` on.
template <typename T>
std::span<const T> page_of(const std::vector<T>& list, size_t first, size_t size) {
    const size_t begin = std::min(first, list.size());
    return std::span(list).subspan(begin, std::min(size, list.size() - begin));
}

Bytes reply_header(char letter, Status status) {
    Bytes reply(header_size);
    reply[2] = static_cast<uint8_t>(letter);
    reply[3] = static_cast<uint8_t>(status);
    return reply;
}

// Changes what a message says, as the fault asks.
void spoil(Bytes& message, const Fault& fault) {
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
      versions_(options.versions),
      period_(1 / options.rate),
      arm_time_(Clock::now()),
      records_(options.history) {
    for (const Variable& output : catalogue_.outputs) {
        outputs_.push_back({&output, find_signal(output.name, output.type),
                            id_pattern(output.id, width(output.type))});
    }
    for (const Variable& input : catalogue_.inputs) {
        inputs_.push_back({&input, nullptr, Bytes(width(input.type))});
    }
    for (Slot& slot : outputs_) {
        outputs_by_id_.emplace(slot.variable->id, &slot);
    }
    for (Slot& slot : inputs_) {
        inputs_by_id_.emplace(slot.variable->id, &slot);
    }
    for (const Method& method : catalogue_.methods) {
        methods_by_id_.emplace(method.id, MethodSlot{&method, find_command(method.name)});
    }
}

void Controller::offer_raw_path(const MacAddress& own) {
    const std::lock_guard lock(mutex_);
    own_mac_ = own;
}

void Controller::connected() {
    const std::lock_guard lock(mutex_);
    ++records_.counters.connections;
}

void Controller::begin_session() {
    const std::lock_guard lock(mutex_);
    catch_up();
    session_ = Session{};
}

void Controller::end_session() {
    begin_session();
}

bool Controller::streaming() const {
    const std::lock_guard lock(mutex_);
    return session_.streaming;
}

std::optional<MacAddress> Controller::raw_client() const {
    const std::lock_guard lock(mutex_);
    return session_.raw_client;
}

// While packages are streamed, each of them lets one cycle pass. Otherwise the arm moves on only
// when somebody asks.
void Controller::catch_up() {
    const auto now = Clock::now();
    const double seconds = std::chrono::duration<double>(now - arm_time_).count();
    if (!session_.streaming && seconds > 0) {
        arm_.advance(seconds);
    }
    arm_time_ = now;
}

std::string_view Controller::method_name(BytesView message) const {
    Reader in(message);
    in.bytes(2);
    if (in.number<uint8_t>() != 'm') {
        return {};
    }
    const auto found = methods_by_id_.find(in.number<uint16_t>());
    return found != methods_by_id_.end() ? std::string_view(found->second.method->name)
                                         : std::string_view();
}

std::optional<Outgoing> Controller::answer(Port port, BytesView message) {
    const std::lock_guard lock(mutex_);
    catch_up();
    const char letter = message.size() > 2 ? static_cast<char>(message[2]) : '\0';
    Outgoing out;
    const bool answered = letter != 'U' && !(port == Port::raw && session_.nack);
    if (answered) {
        out.fault = faults_.meet(Target::reply, letter, method_name(message));
    }
    out.message = reply_header(letter, Status::accepted);
    Status status = out.fault && out.fault->status ? static_cast<Status>(*out.fault->status)
                                                   : dispatch(port, message, out.message);
    if (status != Status::accepted) {
        out.message = reply_header(letter, status);
    }
    set_length_word(out.message, out.message.size());
    records_.add_request(port, message, status != Status::accepted);
    changed_.notify_all();
    if (!answered) {
        return std::nullopt;
    }
    if (out.fault) {
        if (out.fault->empty_page) {
            out.message.resize(header_size);
            out.message.push_back(0);
        }
        spoil(out.message, *out.fault);
    }
    return out;
}

Status Controller::dispatch(Port port, BytesView message, Bytes& reply) {
    Reader in(message);
    const auto length = in.number<uint16_t>();
    const auto letter = static_cast<char>(in.number<uint8_t>());
    if (!in.ok() || length != message.size()) {
        return Status::malformed;
    }
    Writer payload(reply);
    if (letter == 'm') {
        return call(port, in, payload);
    }
    if (letter == 'U' && port != Port::control) {
        return take_input(port, in);
    }
    return port == Port::io ? dispatch_io(letter, in, payload) : Status::unknown_type;
}

Status Controller::dispatch_io(char letter, Reader& in, Writer& payload) {
    switch (letter) {
        case 'V':
            return negotiate(in, payload);
        case 'R':
            return variables_page(catalogue_.outputs, in, payload);
        case 'r':
            return variables_page(catalogue_.inputs, in, payload);
        case 'M':
            return methods_page(in, payload);
        case 'O':
            return set_up_output(in, payload);
        case 'I':
            return set_up_input(in, payload);
        case 'S':
            return start(in);
        case 'P':
            return pause(in);
        case 'v':
            return versions(in, payload);
        default:
            return Status::unknown_type;
    }
}

Status Controller::negotiate(Reader& in, Writer& payload) {
    constexpr uint64_t raw_bit = 0x10000;
    constexpr uint64_t nack_bit = 0x20000;
    const auto word = in.number<uint64_t>();
    const bool raw = (word & raw_bit) != 0;
    MacAddress client{};
    if (raw) {
        std::ranges::copy(in.bytes(client.size()), client.begin());
    }
    if (!in.exhausted()) {
        return Status::malformed;
    }
    if (raw && !own_mac_) {
        return Status::no_raw_path;
    }
    session_.version = word & 0xFFFF;
    session_.nack = raw && (word & nack_bit) != 0;
    session_.raw_client.reset();
    if (raw) {
        session_.raw_client = client;
        payload.bytes(*own_mac_);
    }
    return Status::accepted;
}

Status Controller::variables_page(const std::vector<Variable>& list, Reader& in,
                                  Writer& payload) const {
    const auto first = in.number<uint32_t>();
    if (!in.exhausted()) {
        return Status::malformed;
    }
    const auto page = page_of(list, first, page_size());
    payload.number(static_cast<uint8_t>(page.size()));
    for (const Variable& variable : page) {
        put_name(payload, variable.name);
        payload.number(variable.id);
        payload.number(static_cast<uint8_t>(variable.type));
    }
    return Status::accepted;
}

Status Controller::methods_page(Reader& in, Writer& payload) const {
    const auto first = in.number<uint32_t>();
    if (!in.exhausted()) {
        return Status::malformed;
    }
    const auto page = page_of(catalogue_.methods, first, page_size());
    payload.number(static_cast<uint8_t>(page.size()));
    for (const Method& method : page) {
        put_name(payload, method.name);
        payload.number(method.id);
    }
    return Status::accepted;
}

// An output recipe may also name inputs, whose values it echoes.
Controller::Slot* Controller::find_slot(uint32_t id, bool inputs_only) {
    if (!inputs_only) {
        const auto output = outputs_by_id_.find(id);
        if (output != outputs_by_id_.end()) {
            return output->second;
        }
    }
    const auto input = inputs_by_id_.find(id);
    return input != inputs_by_id_.end() ? input->second : nullptr;
}

// False when an id is unknown; whether the message fits its count is the reader's to say.
bool Controller::read_recipe(Reader& in, bool inputs_only, Recipe& recipe) {
    const auto count = in.number<uint16_t>();
    if (in.left() != count * sizeof(uint32_t)) {
        in.bytes(in.left() + 1);
        return true;
    }
    for (unsigned i = 0; i < count; ++i) {
        Slot* slot = find_slot(in.number<uint32_t>(), inputs_only);
        if (slot == nullptr) {
            return false;
        }
        recipe.slots.push_back(slot);
        recipe.length += slot->held.size();
    }
    return true;
}

uint8_t Controller::next_recipe_id() {
    session_.last_recipe_id = static_cast<uint8_t>(session_.last_recipe_id % 255 + 1);
    return session_.last_recipe_id;
}

Status Controller::set_up_output(Reader& in, Writer& payload) {
    Recipe recipe;
    in.number<uint32_t>();
    if (!read_recipe(in, false, recipe)) {
        return Status::unknown_variable;
    }
    if (!in.exhausted()) {
        return Status::malformed;
    }
    if (recipe.length + 4 > UINT16_MAX) {
        return Status::recipe_too_long;
    }
    recipe.id = next_recipe_id();
    payload.number(recipe.id);
    session_.output = std::move(recipe);
    return Status::accepted;
}

Status Controller::set_up_input(Reader& in, Writer& payload) {
    Recipe recipe;
    if (!read_recipe(in, true, recipe)) {
        return Status::unknown_variable;
    }
    if (!in.exhausted()) {
        return Status::malformed;
    }
    recipe.id = next_recipe_id();
    payload.number(recipe.id);
    session_.inputs[recipe.id] = std::move(recipe);
    return Status::accepted;
}

Status Controller::start(Reader& in) {
    if (!in.exhausted()) {
        return Status::malformed;
    }
    if (session_.output.id == 0) {
        return Status::no_recipe;
    }
    arm_.package = 0;
    session_.streaming = true;
    return Status::accepted;
}

Status Controller::pause(Reader& in) {
    if (!in.exhausted()) {
        return Status::malformed;
    }
    session_.streaming = false;
    return Status::accepted;
}

Status Controller::versions(Reader& in, Writer& payload) const {
    if (!in.exhausted()) {
        return Status::malformed;
    }
    payload.number(versions_.model);
    put_name(payload, versions_.firmware);
    put_name(payload, versions_.hardware);
    put_name(payload, versions_.bootloader);
    return Status::accepted;
}

Status Controller::take_input(Port port, Reader& in) {
    const auto recipe = session_.inputs.find(in.number<uint8_t>());
    if (!in.ok()) {
        return Status::malformed;
    }
    if (recipe == session_.inputs.end()) {
        return Status::no_recipe;
    }
    if (in.left() != recipe->second.length) {
        return Status::malformed;
    }
    Input input{recipe->first, {}, port};
    for (Slot* slot : recipe->second.slots) {
        const BytesView value = in.bytes(slot->held.size());
        slot->held.assign(value.begin(), value.end());
        input.values.insert(input.values.end(), value.begin(), value.end());
    }
    ++arm_.inputs;
    records_.add(input);
    return Status::accepted;
}

Status Controller::call(Port port, Reader& in, Writer& payload) {
    const auto id = in.number<uint16_t>();
    const auto count = in.number<uint8_t>();
    const auto arguments = in.ok() ? read_arguments(in, count) : std::nullopt;
    if (!arguments) {
        return Status::malformed;
    }
    const auto found = methods_by_id_.find(id);
    if (found == methods_by_id_.end()) {
        return Status::unknown_method;
    }
    if (found->second.method->name == servo_command) {
        return port != Port::io ? servo(port, *arguments) : Status::unknown_type;
    }
    const Command* command = found->second.command;
    if (command == nullptr) {
        return Status::accepted;
    }
    if (command->port != port) {
        return Status::unknown_type;
    }
    const bool fit = std::ranges::equal(*arguments, command->arguments, {}, &Argument::type);
    return fit ? command->run(arm_, *arguments, payload) : Status::bad_argument;
}

Status Controller::servo(Port port, const std::vector<Argument>& arguments) {
    const ServoForm form = session_.version == 1 ? ServoForm::separate : ServoForm::array;
    auto point = read_set_point(arguments, form);
    if (!point) {
        return Status::bad_argument;
    }
    if (arm_.error_code != 0) {
        return Status::error_state;
    }
    point->port = port;
    arm_.sequence = point->sequence;
    ++arm_.set_points;
    records_.add(*point);
    if (point->joints.size() >= arm_.target.size()) {
        Joints target;
        std::copy_n(point->joints.begin(), target.size(), target.begin());
        arm_.follow(target);
    }
    return Status::accepted;
}

void Controller::next_package(Outgoing& out) {
    const std::lock_guard lock(mutex_);
    arm_.advance(period_);
    ++arm_.package;
    out.message.assign({0, 0, 'U', session_.output.id});
    Writer values(out.message);
    for (const Slot* slot : session_.output.slots) {
        if (slot->signal != nullptr) {
            slot->signal->write(arm_, values);
        } else {
            values.bytes(slot->held);
        }
    }
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
    const auto slot = std::ranges::find_if(
        outputs_, [&](const Slot& entry) { return entry.variable->name == name; });
    if (slot == outputs_.end()) {
        return false;
    }
    slot->signal = nullptr;
    slot->held = value;
    slot->held.resize(width(slot->variable->type));
    return true;
}

Bytes Controller::input(const std::string& name) const {
    const std::lock_guard lock(mutex_);
    const auto slot = std::ranges::find_if(
        inputs_, [&](const Slot& entry) { return entry.variable->name == name; });
    return slot != inputs_.end() ? slot->held : Bytes{};
}

bool Controller::wait(const std::function<bool(const Records&)>& condition,
                      std::chrono::milliseconds limit) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return condition(records_); });
}

}  // namespace sim
