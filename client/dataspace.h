// The dataspace: all state of one handle, in one zeroed block. Its size and the order of its
// members are part of the binary interface.
#ifndef CLIENT_DATASPACE_H
#define CLIENT_DATASPACE_H

#include <semaphore.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "wire/protocol.h"

namespace vexo {

constexpr uint32_t kOutputRows = 2000;
constexpr uint32_t kInputRows = 1000;
constexpr uint32_t kMethodRows = 3000;
constexpr size_t kNameSize = 100;
constexpr size_t kBufferSize = 20480;

enum LinkMode : uint8_t { kLinkNone = 0, kLinkRaw = 1, kLinkTcp = 2 };
enum Streaming : uint8_t { kNotStarted = 0, kStarted = 1, kPaused = 2 };

struct VariableEntry {
    char name[kNameSize];  // no final zero when it has 100 characters
    uint32_t id;
    uint8_t type;
    uint8_t value_length;
    uint8_t selected;
};

struct MethodEntry {
    char name[kNameSize];
    uint16_t id;
    uint16_t reserved;
};

struct RecipePosition {
    char reserved[100];
    uint32_t type;
    uint8_t value_length;
};

// A node of the name index: name, row, and a link of the hash library, whose types stay in
// name_index.cpp. So does what is in a node.
struct NameNode;
struct alignas(void*) NameNodeRoom {
    std::byte bytes[160];
};

struct Dataspace {
    // ---- Identity and negotiation. Written by the application's thread.
    uint32_t handle;
    uint32_t version_word;
    uint32_t nack;

    // ---- Catalogue. Written by vexo_all_recipe_get(); `selected` by the recipes.
    uint32_t output_count;
    uint32_t input_count;
    uint32_t method_count;
    uint32_t page_size;
    uint32_t servo_counter;  // under base_servoj_mutex
    VariableEntry outputs[kOutputRows];
    VariableEntry inputs[kInputRows];
    MethodEntry methods[kMethodRows];

    // ---- Streaming. The mode and flag are the application's; the receive thread reads them.
    uint8_t link_mode;
    uint8_t streaming;
    uint8_t output_store[kBufferSize];  // receive thread, under the slot's sequence count

    // ---- Messages. One request at a time; on the raw path the receive thread stores replies.
    uint8_t response[kBufferSize];
    uint8_t request[kBufferSize];

    // ---- Recipes. Written by the application's thread.
    RecipePosition output_recipe[kOutputRows];
    RecipePosition input_recipe[kInputRows];

    // ---- Connections. Written by the application's thread before the stream starts.
    int32_t io_socket;       // port 2295
    int32_t receive_socket;  // port 2299
    int32_t control_socket;  // port 2297
    int32_t raw_socket;      // instance of the raw transport

    // ---- Name index. Written while it is built, then only read.
    NameNode* input_index;
    NameNode* output_index;
    NameNode* method_index;
    NameNodeRoom input_nodes[kInputRows];
    NameNodeRoom output_nodes[kOutputRows];
    NameNodeRoom method_nodes[kMethodRows];
    uint32_t input_nodes_used;
    uint32_t output_nodes_used;
    uint32_t method_nodes_used;

    // ---- Package lengths. Written by the recipes; the receive thread reads the first.
    uint32_t output_length;
    uint32_t input_length;

    // ---- Addresses. Written by connection and negotiation.
    uint8_t controller_mac[wire::kMacSize];
    uint8_t host_mac[wire::kMacSize];
    char ip[64];

    // ---- Posted by the receive thread for each raw reply, waited for by the servo command.
    sem_t reply;
};

static_assert(sizeof(VariableEntry) == 108);
static_assert(sizeof(MethodEntry) == 104);
static_assert(sizeof(RecipePosition) == 108);
static_assert(sizeof(Dataspace) == 1981648);
static_assert(offsetof(Dataspace, outputs) == 32);
static_assert(offsetof(Dataspace, link_mode) == 636032);
static_assert(offsetof(Dataspace, response) == 656514);
static_assert(offsetof(Dataspace, request) == 676994);
static_assert(offsetof(Dataspace, output_recipe) == 697476);
static_assert(offsetof(Dataspace, io_socket) == 1021476);
static_assert(offsetof(Dataspace, input_index) == 1021496);
static_assert(offsetof(Dataspace, output_length) == 1981532);
static_assert(offsetof(Dataspace, controller_mac) == 1981540);
static_assert(offsetof(Dataspace, reply) == 1981616);

// A member that the receive thread reads while the application may write it.
template <typename T>
std::atomic_ref<T> shared(T& member) {
    return std::atomic_ref<T>(member);
}

// Build the name index of a list of the catalogue.
void index_inputs(Dataspace& dataspace);
void index_outputs(Dataspace& dataspace);
void index_methods(Dataspace& dataspace);
// Frees what the name index has allocated beside the dataspace.
void release_name_index(Dataspace& dataspace);

// The entry of a row, or an empty one for a row outside the catalogue.
const MethodEntry& method_entry(const Dataspace& dataspace, int32_t row);

}  // namespace vexo

#endif
