// The controller's catalogue: its pages, and the whole of it in the dataspace.
#include <algorithm>
#include <cstring>

#include "client/exchange.h"
#include "client/registry.h"
#include "client/vexo.h"
#include "net/exchange_socket.h"

using namespace vexo;

namespace {

constexpr int kMaxEmptyPages = 3;

// How the rows of a page array lie in the caller's memory.
struct PageLayout {
    char type_letter;
    size_t header;
    size_t row_size;
    size_t name_size;  // room for the final zero included
    size_t id_offset;
    size_t id_width;
    bool has_type;  // a type code follows the id
};

constexpr PageLayout variable_page(char type_letter) {
    return {type_letter,
            offsetof(VexoVariablePage, rows),
            sizeof(VexoVariableRow),
            sizeof(VexoVariableRow::name),
            offsetof(VexoVariableRow, id),
            sizeof(VexoVariableRow::id),
            true};
}

constexpr PageLayout kOutputPage = variable_page('R');
constexpr PageLayout kInputPage = variable_page('r');
constexpr PageLayout kMethodPage = {'M',
                                    offsetof(VexoMethodPage, rows),
                                    sizeof(VexoMethodRow),
                                    sizeof(VexoMethodRow::name),
                                    offsetof(VexoMethodRow, id),
                                    sizeof(VexoMethodRow::id),
                                    false};

// The receives of one page. The number of full-size reads is fixed by the length word of what has
// come first, and a short read is not repeated.
class PageReceiver {
public:
    explicit PageReceiver(const Registration& handle) : handle_(handle), dataspace_(*handle) {}

    void run() {
        read(kReadSize);
        if (last_ <= 0) {
            return;
        }
        needed_ = read_u16(dataspace_.response);
        for (int full = missing() / static_cast<int>(kReadSize); full > 0; --full) {
            read(kReadSize);
        }
        const int rest = missing() % static_cast<int>(kReadSize);
        if (rest > 0) {
            read(static_cast<unsigned>(rest));
        }
    }

    int last() const { return last_; }
    uint16_t received() const { return received_; }
    uint16_t needed() const { return needed_; }

private:
    int missing() const { return needed_ - received_; }

    // Appends one receive to the response buffer, never beyond its end.
    void read(unsigned count) {
        const size_t room =
            sizeof dataspace_.response - std::min<size_t>(received_, sizeof dataspace_.response);
        const auto wanted = static_cast<unsigned>(std::min<size_t>(count, room));
        if (wanted == 0) {
            return;
        }
        last_ =
            receive_reply(handle_, dataspace_.io_socket, dataspace_.response + received_, wanted);
        received_ = static_cast<uint16_t>(received_ + last_);
    }

    const Registration& handle_;
    Dataspace& dataspace_;
    int last_ = 0;
    uint16_t received_ = 0;
    uint16_t needed_ = 0;
};

// Requests the page that begins with entry `first`. On success the reply lies in the response
// buffer, `size` bytes long.
int32_t request_page(Caller caller, const Registration& handle, char type_letter, uint32_t first,
                     size_t& size) {
    Dataspace& dataspace = *handle;
    MessageWriter message = begin_request(dataspace, type_letter);
    message.u32(first);
    const auto length = static_cast<unsigned>(message.finish());
    const int sent = socket_send(dataspace.io_socket, dataspace.request, length);
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
    size = receiver.received();
    return examine_status(caller, dataspace.response[kStatusOffset]);
}

// Reads one entry into a row of the caller's array. A name is cut to its field.
void decode_entry(MessageReader& entries, const PageLayout& layout, uint8_t* row) {
    const uint8_t name_length = entries.u8();
    uint8_t* name = row + 1;
    const size_t kept = entries.bytes(name, layout.name_size - 1, name_length);
    row[0] = static_cast<uint8_t>(kept);
    name[kept] = 0;
    const uint32_t id = layout.id_width == sizeof(uint32_t) ? entries.u32() : entries.u16();
    std::memcpy(row + layout.id_offset, &id, layout.id_width);
    if (layout.has_type) {
        row[layout.id_offset + layout.id_width] = entries.u8();
    }
}

void decode_page(const Dataspace& dataspace, const PageLayout& layout, size_t size, uint8_t* array,
                 uint32_t room) {
    MessageReader entries(dataspace.response, size, kReplyPayload);
    const auto count = static_cast<uint8_t>(std::min<uint32_t>(entries.u8(), room));
    array[0] = count;
    for (size_t i = 0; i < count; ++i) {
        decode_entry(entries, layout, array + layout.header + i * layout.row_size);
    }
}

// Reads the page that begins with entry `first` into an array with room for so many rows.
int32_t read_page(Caller caller, const Registration& handle, const PageLayout& layout,
                  uint32_t first, uint8_t* array, uint32_t room) {
    size_t size = 0;
    const int32_t result = request_page(caller, handle, layout.type_letter, first, size);
    if (result == 0) {
        decode_page(*handle, layout, size, array, room);
    }
    return result;
}

// A page for the application, whose array has room for as many rows as were agreed.
int32_t get_page(Caller caller, const Registration& handle, const PageLayout& layout,
                 uint32_t first, void* array) {
    if (!handle) {
        return -1;
    }
    const uint32_t room = handle->page_size != 0 ? handle->page_size : VEXO_PAGE_ROWS;
    return read_page(caller, handle, layout, first, static_cast<uint8_t*>(array), room);
}

// ---- The whole catalogue

void append(VariableEntry& entry, const VexoVariableRow& row) {
    std::memcpy(entry.name, row.name, std::min<size_t>(row.name_length, sizeof entry.name));
    entry.id = row.id;
    entry.type = row.type;
    entry.value_length = static_cast<uint8_t>(vexo_get_type_len(row.type));
    entry.selected = 0;
}

void append(MethodEntry& entry, const VexoMethodRow& row) {
    std::memcpy(entry.name, row.name, std::min<size_t>(row.name_length, sizeof entry.name));
    entry.id = row.id;
}

// One of the three lists of the catalogue: where from, where to, and its names.
template <typename PageType, typename Entry>
struct List {
    using Page = PageType;

    const PageLayout& layout;
    int32_t (*build_index)(uint32_t handle, int32_t count, const void* rows);
    const char* request;  // the function that asks for one page
    const char* name;     // in messages
    Entry* entries;
    uint32_t capacity;
    uint32_t& count;

    // Appends the rows of a page. False when not all of them have room.
    bool take(const Page& page) {
        const uint32_t taken = std::min<uint32_t>(page.count, capacity - count);
        for (uint32_t i = 0; i < taken; ++i) {
            append(entries[count++], page.rows[i]);
        }
        return taken == page.count;
    }
};

// Reads a list to its end, which is a page that is not full. An empty page is taken for a
// transient fault and asked for again; one with more rows than were agreed is taken as it comes.
template <typename ListType>
int32_t load(Caller caller, const Registration& handle, ListType list) {
    int empty_pages = 0;
    for (uint32_t first = 0;;) {
        typename ListType::Page page;
        const int32_t result = read_page({caller.handle, list.request}, handle, list.layout, first,
                                         reinterpret_cast<uint8_t*>(&page), VEXO_PAGE_ROWS);
        if (result != 0) {
            report(caller, "vexo_all_recipe_get %s Error: %d", list.name, result);
            return result;
        }
        if (page.count == 0 && ++empty_pages > kMaxEmptyPages) {
            report_verbatim(caller, "vexo_all_recipe_get %s num is 0", list.name);
            return VEXO_ERROR_EMPTY_PAGE;
        }
        const bool all_taken = list.take(page);
        if (!all_taken) {
            record(caller, "vexo_all_recipe_get %s: rows beyond %u dropped", list.name,
                   list.capacity);
        }
        if (!all_taken || (page.count > 0 && page.count < handle->page_size)) {
            break;
        }
        first += page.count;
    }
    list.build_index(caller.handle, static_cast<int32_t>(list.count), list.entries);
    return 0;
}

using VariableList = List<VexoVariablePage, VariableEntry>;
using MethodList = List<VexoMethodPage, MethodEntry>;

}  // namespace

int32_t vexo_output_variables_get(uint32_t handle, uint32_t first, uint32_t* array) {
    const Caller caller{handle, __func__};
    return get_page(caller, find_or_report_not_found(caller), kOutputPage, first, array);
}

int32_t vexo_input_variables_get(uint32_t handle, uint32_t first, uint32_t* array) {
    const Caller caller{handle, __func__};
    return get_page(caller, find_or_report_not_found(caller), kInputPage, first, array);
}

int32_t vexo_control_methods_get(uint32_t handle, uint32_t first, uint8_t* array) {
    const Caller caller{handle, __func__};
    return get_page(caller, find_or_record_null(caller), kMethodPage, first, array);
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
    int32_t result =
        load(caller, found,
             VariableList{kOutputPage, build_output_hash, "vexo_output_variables_get",
                          "output_variables_get", d.outputs, kOutputRows, d.output_count});
    if (result == 0) {
        result =
            load(caller, found,
                 VariableList{kInputPage, build_input_hash, "vexo_input_variables_get",
                              "vexo_input_variables_get", d.inputs, kInputRows, d.input_count});
    }
    if (result == 0) {
        result =
            load(caller, found,
                 MethodList{kMethodPage, build_method_hash, "vexo_control_methods_get",
                            "vexo_control_methods_get", d.methods, kMethodRows, d.method_count});
    }
    return result;
}

int32_t vexo_get_type_len(int32_t type) {
    static constexpr uint8_t kWidths[] = {1, 1, 1,  2,  4,  8,  1,  2,  4,  8,
                                          4, 8, 24, 48, 12, 24, 24, 24, 255};
    const auto code = static_cast<uint8_t>(type);
    return code < std::size(kWidths) ? kWidths[code] : 0;
}
