#include "client/name_index.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>

#include "client/records.h"
#include "client/registry.h"
#include "client/vexo.h"

using namespace vexo;

namespace {

uint64_t mix(uint64_t hash, uint64_t word) {
    constexpr uint64_t kOdd = 0x9E3779B97F4A7C15;
    hash = (hash ^ word) * kOdd;
    return hash ^ hash >> 32;
}

// Eight characters at a time; uthash's own functions take them one by one.
unsigned hash_of(const char* name, size_t length) {
    uint64_t hash = length;
    for (; length >= sizeof hash; length -= sizeof hash, name += sizeof hash) {
        uint64_t word;
        std::memcpy(&word, name, sizeof word);
        hash = mix(hash, word);
    }
    uint64_t rest = 0;
    for (size_t i = 0; i < length; ++i) {
        rest = rest << 8 | static_cast<uint8_t>(name[i]);
    }
    return static_cast<unsigned>(mix(hash, rest));
}

#undef HASH_FUNCTION
#define HASH_FUNCTION(name, length, hash) hash = hash_of(name, length)

#include <uthash.h>

// Room for a robot's catalogue: each doubling would touch all nodes again.
#undef HASH_INITIAL_NUM_BUCKETS
#undef HASH_INITIAL_NUM_BUCKETS_LOG2
#define HASH_INITIAL_NUM_BUCKETS 1024U
#define HASH_INITIAL_NUM_BUCKETS_LOG2 10U

}  // namespace

struct vexo::NameNode {
    char name[kNameSize];
    int32_t row;
    UT_hash_handle hh;
};
static_assert(sizeof(UT_hash_handle) == 56);
static_assert(sizeof(NameNode) == sizeof(NameNodeRoom));
static_assert(alignof(NameNode) <= alignof(NameNodeRoom));

namespace {

// One of the three tables of a handle.
struct NameTable {
    NameNode*& head;
    NameNodeRoom* pool;
    uint32_t pool_size;
    uint32_t& used;
    size_t row_size;   // distance of the catalogue's rows
    const char* noun;  // in messages
};

NameTable input_table(Dataspace& d) {
    return {d.input_index,      d.input_nodes,         kInputRows,
            d.input_nodes_used, sizeof(VariableEntry), "Input"};
}

NameTable output_table(Dataspace& d) {
    return {d.output_index,      d.output_nodes,        kOutputRows,
            d.output_nodes_used, sizeof(VariableEntry), "Output"};
}

NameTable method_table(Dataspace& d) {
    return {d.method_index,      d.method_nodes,      kMethodRows,
            d.method_nodes_used, sizeof(MethodEntry), "Method"};
}

using TableOf = NameTable (*)(Dataspace&);

void report_missing(Caller caller) {
    report(caller, "%s---VexoDatespace is NULL", caller.function);
}

// Releases the hash library's records; the nodes live in the pool.
void drop(NameTable& table) {
    HASH_CLEAR(hh, table.head);
    table.used = 0;
}

void add(NameTable& table, std::string_view name, int32_t row) {
    auto* node = new (&table.pool[table.used++]) NameNode{};
    std::memcpy(node->name, name.data(), name.size());
    node->row = row;
    // Of the characters where they come from: those in the node are still on their way to memory.
    const unsigned hash = hash_of(name.data(), name.size());
    HASH_ADD_KEYPTR_BYHASHVALUE(hh, table.head, node->name, name.size(), hash, node);
}

void build(Caller caller, NameTable table, int32_t count, const void* rows) {
    drop(table);
    const char* row_name = static_cast<const char*>(rows);
    for (int32_t row = 0; row < count; ++row, row_name += table.row_size) {
        const std::string_view name(row_name, strnlen(row_name, kNameSize));
        if (name.empty()) {
            continue;
        }
        if (table.used == table.pool_size) {
            report(caller, "[ERROR] %s hash pool overflow!", table.noun);
            break;
        }
        add(table, name, row);
    }
}

int32_t build_for(Caller caller, TableOf table_of, int32_t count, const void* rows) {
    const Registration found(caller, report_missing);
    if (!found) {
        return -1;
    }
    build(caller, table_of(*found), count, rows);
    return 0;
}

int32_t look_up(const NameTable& table, std::string_view name) {
    NameNode* node = nullptr;
    HASH_FIND(hh, table.head, name.data(), name.size(), node);
    return node != nullptr ? node->row : -1;
}

int32_t find(Caller caller, const BriefRegistration& found, TableOf table_of, const char* name) {
    if (!found) {
        report_if_null(caller.handle);
        report_missing(caller);
        return -1;
    }
    return name != nullptr ? look_up(table_of(*found), name) : -1;
}

int32_t find_input(uint32_t handle, const BriefRegistration& found, const char* name) {
    return find({handle, "find_input_index"}, found, input_table, name);
}

int32_t find_output(uint32_t handle, const BriefRegistration& found, const char* name) {
    return find({handle, "find_output_index"}, found, output_table, name);
}

int32_t find_method(uint32_t handle, const BriefRegistration& found, const char* name) {
    return find({handle, "find_method_index"}, found, method_table, name);
}

// A row for an output recipe: of an output, else of an input that is to be echoed.
int32_t find_output_or_input(uint32_t handle, const BriefRegistration& found, const char* name) {
    const int32_t row = find_output(handle, found, name);
    return row != -1
               ? row
               : find_input(handle, found, name) | static_cast<int32_t>(VEXO_INPUT_ROW_MARKER);
}

using Find = int32_t (*)(uint32_t handle, const BriefRegistration& found, const char* name);

Find find_of_kind(uint32_t kind) {
    static constexpr Find kFinds[] = {find_input, find_output_or_input, find_method};
    return kind < std::size(kFinds) ? kFinds[kind] : nullptr;
}

// Cuts the list at its commas, in place. An empty item is null.
void split(char* list, const char** names) {
    for (;;) {
        char* comma = std::strchr(list, ',');
        if (comma != nullptr) {
            *comma = '\0';
        }
        *names++ = *list != '\0' ? list : nullptr;
        if (comma == nullptr) {
            return;
        }
        list = comma + 1;
    }
}

}  // namespace

void vexo::release_name_index(Dataspace& dataspace) {
    for (const TableOf table_of : {input_table, output_table, method_table}) {
        NameTable table = table_of(dataspace);
        drop(table);
    }
}

void vexo::index_inputs(Dataspace& d) {
    build({d.handle, "build_input_hash"}, input_table(d), static_cast<int32_t>(d.input_count),
          d.inputs);
}

void vexo::index_outputs(Dataspace& d) {
    build({d.handle, "build_output_hash"}, output_table(d), static_cast<int32_t>(d.output_count),
          d.outputs);
}

void vexo::index_methods(Dataspace& d) {
    build({d.handle, "build_method_hash"}, method_table(d), static_cast<int32_t>(d.method_count),
          d.methods);
}

int32_t build_input_hash(uint32_t handle, int32_t count, const void* rows) {
    return build_for({handle, __func__}, input_table, count, rows);
}

int32_t build_output_hash(uint32_t handle, int32_t count, const void* rows) {
    return build_for({handle, __func__}, output_table, count, rows);
}

int32_t build_method_hash(uint32_t handle, int32_t count, const void* rows) {
    return build_for({handle, __func__}, method_table, count, rows);
}

int32_t reset_all_hashes(uint32_t handle) {
    const Registration found({handle, __func__}, report_missing);
    if (!found) {
        return -1;
    }
    release_name_index(*found);
    return 0;
}

int32_t find_input_index(uint32_t handle, const char* name) {
    return find_input(handle, BriefRegistration(handle), name);
}

int32_t find_output_index(uint32_t handle, const char* name) {
    return find_output(handle, BriefRegistration(handle), name);
}

int32_t find_method_index(uint32_t handle, const char* name) {
    return find_method(handle, BriefRegistration(handle), name);
}

int32_t multi_find(uint32_t handle, const char* names, uint32_t kind, int32_t* results) {
    if (names == nullptr) {
        return -1;
    }
    // The names and the pointers to them, in one block: the list may be long, and stacks short.
    const size_t length = strnlen(names, VEXO_NAME_LIST_MAX);
    const auto count = static_cast<int32_t>(1 + std::count(names, names + length, ','));
    const size_t pointers = static_cast<size_t>(count) * sizeof(const char*);
    void* block = std::malloc(pointers + length + 1);
    if (block == nullptr) {
        report({handle, __func__}, "malloc failed");
        return -1;
    }
    auto** items = static_cast<const char**>(block);
    char* list = static_cast<char*>(block) + pointers;
    std::memcpy(list, names, length);
    list[length] = '\0';
    split(list, items);
    const Find find_row = find_of_kind(kind);
    const BriefRegistration found(handle);
    for (int32_t i = 0; find_row != nullptr && i < count; ++i) {
        results[i] = items[i] != nullptr ? find_row(handle, found, items[i]) : -1;
    }
    std::free(block);
    return count;
}

int32_t build_all_hashes(uint32_t handle) {
    const Registration found = find_or_report_not_found({handle, __func__});
    if (!found) {
        return -1;
    }
    index_inputs(*found);
    index_outputs(*found);
    index_methods(*found);
    return 0;
}
