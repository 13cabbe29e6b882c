// Without this a page of the catalogue could be read beyond its end, or out of step with its bytes.
#include <cstring>

#include "fuzz/input.h"
#include "wire/catalogue.h"

using namespace fuzz;

namespace {

// Takes `width` bytes, as far as they are there, as a number; whether they are all there.
bool plain(Span reply, size_t& position, size_t width, uint32_t& number) {
    const size_t there = reply.size() - std::min(position, reply.size());
    number = 0;
    if (there > 0) {
        std::memcpy(&number, reply.data() + position, std::min(width, there));
    }
    position += width;
    return width <= there;
}

template <typename Row>
void read_page(Span reply, size_t id_width) {
    vexo::wire::Page<Row> page(reply);
    size_t position = 7;
    uint32_t expected = 0;
    bool whole = plain(reply, position, 1, expected);
    check(page.count() == expected, "the count is the reply's");
    for (int i = 0; i < page.count(); ++i) {
        const Row row = page.next();
        whole = plain(reply, position, 1, expected) && whole;
        const Span rest = reply.subspan(std::min(position, reply.size()));
        const Span name = rest.first(std::min<size_t>(expected, rest.size()));
        check(same_bytes(row.name, name), "a name ends with the reply");
        position += expected;
        whole = plain(reply, position, id_width, expected) && whole;
        check(row.id == expected, "an id is the reply's");
        if constexpr (requires { row.type; }) {
            whole = plain(reply, position, 1, expected) && whole;
            check(row.type == expected, "a type is the reply's");
        }
    }
    check(page.ok() == whole, "a page that ends early is known");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    read_page<vexo::wire::VariableRow>({data, size}, 4);
    read_page<vexo::wire::MethodRow>({data, size}, 2);
    return 0;
}
