// The pages of the catalogue: one request for each page size, into an array of the exact size.
#ifndef FUZZ_PAGE_H
#define FUZZ_PAGE_H

#include <memory>

#include "client/vexo.h"
#include "fuzz/controller.h"

namespace fuzz {

template <typename Page, typename Array>
void get_pages(int32_t (*get)(uint32_t, uint32_t, Array*), const uint8_t* data, size_t size) {
    using Row = std::remove_reference_t<decltype(Page::rows[0])>;
    Input input(data, size);
    const uint16_t delivery = input.u16();
    const Span reply = input.rest();
    for (const uint32_t rows : {10u, VEXO_PAGE_ROWS + 0u}) {
        const size_t bytes = offsetof(Page, rows) + rows * sizeof(Row);
        const std::unique_ptr<void, decltype(&std::free)> block(std::calloc(1, bytes), std::free);
        dataspace().page_size = rows;
        answer(delivery, reply);
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

}  // namespace fuzz

#endif
