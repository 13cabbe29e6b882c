// Without this a reply could lead a request to write outside its buffers or the caller's, or to
// hand out what the controller did not send. The input's first byte says which request it answers.
#include <cstring>
#include <memory>
#include <vector>

#include "client/commands.h"
#include "client/vexo.h"
#include "fuzz/controller.h"

using namespace fuzz;

namespace {

struct Reply {
    explicit Reply(Input& input) : delivery(input.u16()), bytes(input.rest()) {}

    void arrive() const { answer(delivery, bytes); }

    uint16_t delivery;
    Span bytes;
};

const uint8_t* received() {
    return dataspace().response;
}

// For each page size, into an array of the exact size.
template <typename Page, typename Array>
void get_page(Input& input, int32_t (*get)(uint32_t, uint32_t, Array*)) {
    using Row = std::remove_reference_t<decltype(Page::rows[0])>;
    const Reply reply(input);
    for (const uint32_t rows : {10u, VEXO_PAGE_ROWS + 0u}) {
        const size_t bytes = offsetof(Page, rows) + rows * sizeof(Row);
        const std::unique_ptr<void, decltype(&std::free)> block(std::calloc(1, bytes), std::free);
        dataspace().page_size = rows;
        reply.arrive();
        const int32_t result = get(handle(), 0, static_cast<Array*>(block.get()));
        check_result(result);
        const auto* page = static_cast<const Page*>(block.get());
        check(page->count <= rows && (result == 0 || page->count == 0), "rows have their room");
        for (size_t i = 0; i < page->count; ++i) {
            const Row& row = page->rows[i];
            check(row.name_length < sizeof row.name && row.name[row.name_length] == 0,
                  "a name is cut to its field and ends with a zero");
        }
    }
}

void set_up_recipes(Input& input) {
    std::vector<uint32_t> rows;
    for (uint16_t left = input.u16(); left > 0 && !input.empty(); --left) {
        rows.push_back(input.u32());
    }
    const auto count = static_cast<int32_t>(rows.size());
    const Reply reply(input);
    vexo::Dataspace& d = dataspace();
    d.output_count = vexo::kOutputRows;
    d.input_count = vexo::kInputRows;
    for (size_t i = 0; i < vexo::kOutputRows; ++i) {
        d.outputs[i].type = static_cast<uint8_t>(i);
    }
    const auto set_up = [&](bool output) {
        uint32_t recipe = ~0u;
        reply.arrive();
        const int32_t result =
            output ? vexo_output_setup_send(handle(), count, rows.data(), 0, &recipe)
                   : vexo_input_setup_send(handle(), count, reinterpret_cast<int32_t*>(rows.data()),
                                           &recipe);
        check(result == 0 ? recipe == d.response[7] : recipe == ~0u,
              "a recipe's number is taken from its reply");
    };
    set_up(true);
    check(d.output_length <= VEXO_MAX_OUTPUT_PACKAGE, "a package has its limit");
    set_up(false);
}

void negotiate(Input& input) {
    const Reply reply(input);
    for (const int64_t mode : {1, 2, 3}) {
        reply.arrive();
        const int32_t result = vexo_protocol_version_request(handle(), mode, 0);
        check_result(result);
        check(mode != 3 || result == VEXO_ERROR_TRANSPORT ||
                  std::memcmp(dataspace().controller_mac, received() + 7, 6) == 0,
              "the controller's address is the one of the reply");
    }
}

void read_bits(Input& input) {
    const Reply reply(input);
    for (const auto read : {vexo_set_getalldigitalinputbits, vexo_set_getalldigitaloutputbits}) {
        constexpr uint64_t kUntouched = 0x5A5A5A5A5A5A5A5A;
        uint64_t bits = kUntouched;
        reply.arrive();
        const int32_t result = read(handle(), 0, &bits);
        uint64_t sent = 0;
        std::memcpy(&sent, received() + 7, sizeof sent);
        const bool accepted = result != VEXO_ERROR_TRANSPORT && received()[3] == 0;
        check(bits == sent || (!accepted && bits == kUntouched),
              "the bits are those of the reply, or left alone");
    }
    reply.arrive();
    check_result(cvexo_resterror(handle(), 0));
}

void ask_for_version(Input& input) {
    const auto version = std::make_unique<VexoControllerVersion>();
    version->model = 0xFFFF;
    Reply(input).arrive();
    const int32_t result = vexo_get_control_version(handle(), version.get());
    check_result(result);
    check(version->model == (result == 0 ? received()[7] | received()[8] << 8 : 0xFFFF),
          "the record is filled by an accepted reply, and by no other");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    switch (input.u8() % 6) {
        case 0:
            get_page<VexoVariablePage>(input, vexo_output_variables_get);
            break;
        case 1:
            get_page<VexoMethodPage>(input, vexo_control_methods_get);
            break;
        case 2:
            set_up_recipes(input);
            break;
        case 3:
            negotiate(input);
            break;
        case 4:
            read_bits(input);
            break;
        default:
            ask_for_version(input);
    }
    return 0;
}
