// The controller's catalogue: its pages, and the whole of it in the dataspace.
#include "wire/catalogue.h"

#include <algorithm>
#include <cstring>

#include "client/exchange.h"
#include "client/vexo.h"
#include "wire/value_type.h"

using namespace vexo;

namespace {

constexpr int kMaxEmptyPages = 3;

// ---- One page

// The receives of one page. The number of full-size reads is fixed by the length word of what has
// come first, and a short read is not repeated.
class PageReceiver {
public:
    explicit PageReceiver(const Registration& handle) : handle_(handle) {}

    void run() {
        read(kReadSize);
        if (last_.failed) {
            return;
        }
        needed_ = wire::message_length(handle_->response);
        for (size_t full = missing() / kReadSize; full > 0; --full) {
            read(kReadSize);
        }
        read(missing() % kReadSize);
    }

    Received last() const { return last_; }
    uint16_t received() const { return received_; }
    uint16_t needed() const { return needed_; }

private:
    size_t missing() const { return needed_ > received_ ? needed_ - received_ : 0u; }

    // Appends one receive to the response buffer, never beyond its end. One that fails counts as
    // -1 in 16 bits: that is what need_len and now_len tell of it.
    void read(size_t count) {
        const std::span<uint8_t> buffer(handle_->response);
        const auto room = buffer.subspan(std::min<size_t>(received_, buffer.size()));
        const auto wanted = room.first(std::min(count, room.size()));
        if (!wanted.empty()) {
            last_ = receive_reply(handle_, Purpose::request, wanted);
            received_ = static_cast<uint16_t>(received_ + last_.result);
        }
    }

    const Registration& handle_;
    Received last_{};
    uint16_t received_ = 0;
    uint16_t needed_ = 0;
};

// Requests the page that begins with row `first`. On success `reply` is in the response buffer.
int32_t request_page(Caller caller, const Registration& handle, wire::Letter list, uint32_t first,
                     std::span<const uint8_t>& reply) {
    const std::span<uint8_t> room = begin_message(caller, *handle, Purpose::request);
    wire::MessageWriter message = wire::page_request(room, list, first);
    const long sent = send_message(*handle, Purpose::request, message.finish());
    PageReceiver receiver(handle);
    receiver.run();
    if (receiver.received() != receiver.needed()) {
        report(caller, "%s recv error, need_len:%d, now_len:%d", caller.function, receiver.needed(),
               receiver.received());
        return VEXO_ERROR_TRANSPORT;
    }
    if (transfer_failed(caller, {sent, receiver.last()})) {
        return VEXO_ERROR_TRANSPORT;
    }
    const std::span<const uint8_t> buffer = response(*handle);
    reply = buffer.first(std::min<size_t>(receiver.received(), buffer.size()));
    return examine_status(caller, wire::reply_status(reply));
}

// ---- A page for the application

// Cuts a name to its field, of which the last byte is a zero. Its length stands in front.
void put_name(std::string_view name, uint8_t* row, size_t field) {
    const size_t kept = std::min(name.size(), field - 1);
    row[0] = static_cast<uint8_t>(kept);
    std::memcpy(row + 1, name.data(), kept);
    row[1 + kept] = 0;
}

// Rows are written byte by byte: an array of methods may lie at any address.
void put_row(const wire::VariableRow& row, uint8_t* to) {
    put_name(row.name, to, sizeof(VexoVariableRow::name));
    std::memcpy(to + offsetof(VexoVariableRow, id), &row.id, sizeof row.id);
    to[offsetof(VexoVariableRow, type)] = row.type;
}

void put_row(const wire::MethodRow& row, uint8_t* to) {
    put_name(row.name, to, sizeof(VexoMethodRow::name));
    std::memcpy(to + offsetof(VexoMethodRow, id), &row.id, sizeof row.id);
}

// The array is an `Array` with room for as many rows as were agreed.
template <typename Row, typename Array>
int32_t get_page(Caller caller, const Registration& handle, wire::Letter list, uint32_t first,
                 void* array) {
    if (!handle) {
        return -1;
    }
    std::span<const uint8_t> reply;
    const int32_t result = request_page(caller, handle, list, first, reply);
    if (result != 0) {
        return result;
    }
    const uint32_t agreed = handle->page_size != 0 ? handle->page_size : VEXO_PAGE_ROWS;
    wire::Page<Row> page(reply);
    auto* bytes = static_cast<uint8_t*>(array);
    bytes[0] = static_cast<uint8_t>(std::min<uint32_t>(page.count(), agreed));
    for (size_t i = 0; i < bytes[0]; ++i) {
        put_row(page.next(), bytes + offsetof(Array, rows) + i * sizeof(Array::rows[0]));
    }
    return 0;
}

// ---- The whole catalogue

// What was behind a shorter name stays there.
void put_entry(const wire::VariableRow& row, VariableEntry& entry) {
    row.name.copy(entry.name, sizeof entry.name);
    entry.id = row.id;
    entry.type = row.type;
    entry.value_length = static_cast<uint8_t>(wire::type_width(row.type));
    entry.selected = 0;
}

void put_entry(const wire::MethodRow& row, MethodEntry& entry) {
    row.name.copy(entry.name, sizeof entry.name);
    entry.id = row.id;
}

// One of the three lists, of which one goes without its prefix in messages.
struct List {
    wire::Letter letter;
    const char* request;  // the function that asks for one page
    const char* name;     // in messages
    void (*build_index)(Dataspace&);
};

constexpr List kOutputs{wire::Letter::output_page, "vexo_output_variables_get",
                        "output_variables_get", index_outputs};
constexpr List kInputs{wire::Letter::input_page, "vexo_input_variables_get",
                       "vexo_input_variables_get", index_inputs};
constexpr List kMethods{wire::Letter::method_page, "vexo_control_methods_get",
                        "vexo_control_methods_get", index_methods};

// Reads a list to its end, which is a page that is not full. An empty page is taken for a
// transient fault and asked for again; one with more rows than were agreed is taken as it comes.
template <typename Row, typename Entry, uint32_t capacity>
int32_t load(Caller caller, const Registration& handle, const List& list,
             Entry (&entries)[capacity], uint32_t& count) {
    int empty_pages = 0;
    bool complete = false;
    for (uint32_t first = 0; !complete;) {
        std::span<const uint8_t> reply;
        const int32_t result =
            request_page({caller.handle, list.request}, handle, list.letter, first, reply);
        if (result != 0) {
            report(caller, "vexo_all_recipe_get %s Error: %d", list.name, result);
            return result;
        }
        wire::Page<Row> page(reply);
        const uint32_t rows = std::min<uint32_t>(page.count(), VEXO_PAGE_ROWS);
        if (rows == 0 && ++empty_pages > kMaxEmptyPages) {
            // Printed without a line feed.
            report_verbatim(caller, "vexo_all_recipe_get %s num is 0", list.name);
            return VEXO_ERROR_EMPTY_PAGE;
        }
        const uint32_t taken = std::min(rows, capacity - count);
        for (uint32_t i = 0; i < taken; ++i) {
            put_entry(page.next(), entries[count++]);
        }
        if (taken < rows) {
            record(caller, "vexo_all_recipe_get %s: rows beyond %u dropped", list.name, capacity);
        }
        complete = taken < rows || (rows > 0 && rows < handle->page_size);
        first += rows;
    }
    list.build_index(*handle);
    return 0;
}

}  // namespace

int32_t vexo_output_variables_get(uint32_t handle, uint32_t first, uint32_t* array) {
    const Caller caller{handle, __func__};
    return get_page<wire::VariableRow, VexoVariablePage>(caller, find_or_report_not_found(caller),
                                                         wire::Letter::output_page, first, array);
}

int32_t vexo_input_variables_get(uint32_t handle, uint32_t first, uint32_t* array) {
    const Caller caller{handle, __func__};
    return get_page<wire::VariableRow, VexoVariablePage>(caller, find_or_report_not_found(caller),
                                                         wire::Letter::input_page, first, array);
}

int32_t vexo_control_methods_get(uint32_t handle, uint32_t first, uint8_t* array) {
    const Caller caller{handle, __func__};
    return get_page<wire::MethodRow, VexoMethodPage>(caller, find_or_record_null(caller),
                                                     wire::Letter::method_page, first, array);
}

int32_t vexo_all_recipe_get(uint32_t handle) {
    const Caller caller{handle, __func__};
    const Registration found = find_or_record_null(caller);
    if (!found) {
        return -1;
    }
    Dataspace& d = *found;
    d.output_count = 0;
    d.input_count = 0;
    d.method_count = 0;
    int32_t result = load<wire::VariableRow>(caller, found, kOutputs, d.outputs, d.output_count);
    if (result == 0) {
        result = load<wire::VariableRow>(caller, found, kInputs, d.inputs, d.input_count);
    }
    if (result == 0) {
        result = load<wire::MethodRow>(caller, found, kMethods, d.methods, d.method_count);
    }
    return result;
}

int32_t vexo_get_type_len(int32_t type) {
    return static_cast<int32_t>(wire::type_width(static_cast<uint8_t>(type)));
}
