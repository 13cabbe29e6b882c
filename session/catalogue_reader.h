// Reads the controller's three lists, page by page.
#ifndef SESSION_CATALOGUE_READER_H
#define SESSION_CATALOGUE_READER_H

#include <optional>

#include "session/catalogue.h"
#include "wire/message.h"

namespace vexo::session {

class CatalogueReader {
public:
    // Begins with the first list. Version 1 of the protocol has smaller pages.
    void begin(uint32_t version);

    // The request for the next page, built in `buffer`.
    std::span<const uint8_t> next(std::span<uint8_t> buffer) const;
    // The page that came. What is wrong with it, if anything is.
    std::optional<VexoSessionError> take(std::span<const uint8_t> page);

    bool complete() const { return list_ > VEXO_SESSION_METHOD; }
    const Ref<Catalogue>& catalogue() const { return catalogue_; }

private:
    wire::Letter letter() const;
    template <typename Page>
    std::optional<uint32_t> add_rows(std::span<const uint8_t> page);
    void next_list();

    Ref<Catalogue> catalogue_;
    uint32_t page_size_ = 0;
    uint32_t list_ = VEXO_SESSION_OUTPUT;  // that is read
    uint32_t first_ = 0;                   // row of the next page
    uint32_t empty_pages_ = 0;             // at the beginning of the list
};

}  // namespace vexo::session

#endif
