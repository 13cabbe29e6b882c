#include "sim/exchange.h"

#include <algorithm>

namespace sim {

namespace {

void put_text(Writer& out, const std::string& text) {
    out.number(static_cast<uint8_t>(text.size()));
    out.bytes({reinterpret_cast<const uint8_t*>(text.data()), text.size()});
}

void put_entry(Writer& out, const Variable& variable) {
    put_text(out, variable.name);
    out.number(variable.id);
    out.number(static_cast<uint8_t>(variable.type));
}

void put_entry(Writer& out, const Method& method) {
    put_text(out, method.name);
    out.number(method.id);
}

}  // namespace

Exchange::Exchange(const Catalogue& catalogue, const Versions& versions, Arm& arm,
                   Variables& variables, Records& records)
    : catalogue_(catalogue),
      versions_(versions),
      arm_(arm),
      variables_(variables),
      records_(records) {
    for (const Method& method : catalogue_.methods) {
        methods_.emplace(method.id, MethodEntry{&method, find_command(method.name)});
    }
}

std::string_view Exchange::method_name(BytesView message) const {
    Reader in(message);
    in.bytes(2);
    if (in.number<uint8_t>() != 'm') {
        return {};
    }
    const auto found = methods_.find(in.number<uint16_t>());
    return found != methods_.end() ? std::string_view(found->second.method->name)
                                   : std::string_view();
}

Status Exchange::carry_out(Port port, BytesView message, Bytes& reply) {
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
    return port == Port::io ? dispatch(letter, in, payload) : Status::unknown_type;
}

// The requests that only the IO port takes.
Status Exchange::dispatch(char letter, Reader& in, Writer& payload) {
    switch (letter) {
        case 'V':
            return negotiate(in, payload);
        case 'R':
            return page(catalogue_.outputs, in, payload);
        case 'r':
            return page(catalogue_.inputs, in, payload);
        case 'M':
            return page(catalogue_.methods, in, payload);
        case 'O':
            return set_up_output(in, payload);
        case 'I':
            return set_up_input(in, payload);
        case 'S':
            return in.exhausted() ? start() : Status::malformed;
        case 'P':
            return in.exhausted() ? pause() : Status::malformed;
        case 'v':
            return in.exhausted() ? versions(payload) : Status::malformed;
        default:
            return Status::unknown_type;
    }
}

Status Exchange::negotiate(Reader& in, Writer& payload) {
    constexpr uint64_t kRawBit = 0x10000;
    constexpr uint64_t kNackBit = 0x20000;
    const auto word = in.number<uint64_t>();
    std::optional<MacAddress> client;
    if ((word & kRawBit) != 0) {
        client.emplace();
        std::ranges::copy(in.bytes(client->size()), client->begin());
    }
    if (!in.exhausted()) {
        return Status::malformed;
    }
    if (client && !own_mac_) {
        return Status::no_raw_path;
    }
    session.version = word & 0xFFFF;
    session.nack = client && (word & kNackBit) != 0;
    session.raw_client = client;
    if (client) {
        payload.bytes(*own_mac_);
    }
    return Status::accepted;
}

template <typename Entry>
Status Exchange::page(const std::vector<Entry>& list, Reader& in, Writer& payload) const {
    const size_t begin = std::min<size_t>(in.number<uint32_t>(), list.size());
    if (!in.exhausted()) {
        return Status::malformed;
    }
    const size_t page_size = session.version > 1 ? 200 : 10;
    const auto entries = std::span(list).subspan(begin, std::min(page_size, list.size() - begin));
    payload.number(static_cast<uint8_t>(entries.size()));
    for (const Entry& entry : entries) {
        put_entry(payload, entry);
    }
    return Status::accepted;
}

// Count and ids, which end the message.
std::optional<Recipe> Exchange::read_recipe(Reader& in, Variables::Choice choice, Status& status) {
    const auto count = in.number<uint16_t>();
    if (!in.ok() || in.left() != count * sizeof(uint32_t)) {
        status = Status::malformed;
        return std::nullopt;
    }
    auto recipe = variables_.make_recipe(in, choice);
    if (!recipe) {
        status = Status::unknown_variable;
        return std::nullopt;
    }
    session.last_recipe_id = static_cast<uint8_t>(session.last_recipe_id % 255 + 1);
    recipe->id = session.last_recipe_id;
    return recipe;
}

Status Exchange::set_up_output(Reader& in, Writer& payload) {
    in.number<uint32_t>();  // the header word: of no use here
    Status status = Status::accepted;
    auto recipe = read_recipe(in, Variables::Choice::all, status);
    if (!recipe) {
        return status;
    }
    if (recipe->length + 4 > UINT16_MAX) {
        return Status::recipe_too_long;
    }
    payload.number(recipe->id);
    session.output = std::move(*recipe);
    return Status::accepted;
}

Status Exchange::set_up_input(Reader& in, Writer& payload) {
    Status status = Status::accepted;
    auto recipe = read_recipe(in, Variables::Choice::inputs, status);
    if (!recipe) {
        return status;
    }
    payload.number(recipe->id);
    session.inputs[recipe->id] = std::move(*recipe);
    return Status::accepted;
}

Status Exchange::start() {
    if (session.output.id == 0) {
        return Status::no_recipe;
    }
    arm_.package = 0;
    session.streamed = 0;
    session.streaming = true;
    return Status::accepted;
}

Status Exchange::pause() {
    session.streaming = false;
    return Status::accepted;
}

Status Exchange::versions(Writer& payload) const {
    payload.number(versions_.model);
    put_text(payload, versions_.firmware);
    put_text(payload, versions_.hardware);
    put_text(payload, versions_.bootloader);
    return Status::accepted;
}

Status Exchange::take_input(Port port, Reader& in) {
    const auto id = in.number<uint8_t>();
    const auto recipe = session.inputs.find(id);
    if (recipe == session.inputs.end()) {
        return Status::no_recipe;
    }
    if (in.left() != recipe->second.length) {
        return Status::malformed;
    }
    const BytesView values = in.bytes(in.left());
    hold_values(recipe->second, values);
    ++arm_.inputs;
    records_.add(Input{id, {values.begin(), values.end()}, port});
    return Status::accepted;
}

Status Exchange::call(Port port, Reader& in, Writer& payload) {
    const auto id = in.number<uint16_t>();
    const auto count = in.number<uint8_t>();
    const auto arguments = in.ok() ? read_arguments(in, count) : std::nullopt;
    if (!arguments) {
        return Status::malformed;
    }
    const auto found = methods_.find(id);
    return found != methods_.end() ? run(found->second, port, *arguments, payload)
                                   : Status::unknown_method;
}

Status Exchange::run(const MethodEntry& entry, Port port, const std::vector<Argument>& arguments,
                     Writer& payload) {
    if (entry.method->name == kServoCommand) {
        return port != Port::io ? servo(port, arguments) : Status::wrong_port;
    }
    if (entry.command == nullptr) {
        return Status::accepted;
    }
    if (entry.command->port != port) {
        return Status::wrong_port;
    }
    const bool fit = std::ranges::equal(arguments, entry.command->arguments, {}, &Argument::type);
    return fit ? entry.command->run(arm_, arguments, payload) : Status::bad_argument;
}

Status Exchange::servo(Port port, const std::vector<Argument>& arguments) {
    const ServoForm form = session.version == 1 ? ServoForm::separate : ServoForm::array;
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

}  // namespace sim
