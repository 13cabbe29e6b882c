#include "session/catalogue_reader.h"

#include "session/error.h"
#include "wire/catalogue.h"

namespace vexo::session {

namespace {

// An empty page where a list begins is asked for again so often, before the list counts as empty.
constexpr uint32_t kEmptyPages = 3;

Entry entry_of(uint32_t kind, const wire::VariableRow& row) {
    return {kind, std::string(row.name), row.id, row.type};
}

Entry entry_of(uint32_t kind, const wire::MethodRow& row) {
    return {kind, std::string(row.name), row.id, 0};
}

}  // namespace

void CatalogueReader::begin(uint32_t version) {
    catalogue_ = make<Catalogue>();
    page_size_ = version > 1 ? wire::kLargePage : wire::kSmallPage;
    list_ = VEXO_SESSION_OUTPUT;
    first_ = 0;
    empty_pages_ = 0;
}

wire::Letter CatalogueReader::letter() const {
    return list_ == VEXO_SESSION_OUTPUT  ? wire::Letter::output_page
           : list_ == VEXO_SESSION_INPUT ? wire::Letter::input_page
                                         : wire::Letter::method_page;
}

std::span<const uint8_t> CatalogueReader::next(std::span<uint8_t> buffer) const {
    return wire::page_request(buffer, letter(), first_).finish();
}

// How many there were; none when the page makes no sense.
template <typename Page>
std::optional<uint32_t> CatalogueReader::add_rows(std::span<const uint8_t> reply) {
    Page page(reply);
    const uint32_t count = page.count();
    for (uint32_t i = 0; i < count; ++i) {
        const auto row = page.next();
        if (!page.ok() || !catalogue_->add(entry_of(list_, row))) {
            return std::nullopt;
        }
    }
    return page.ok() ? std::optional(count) : std::nullopt;
}

std::optional<VexoSessionError> CatalogueReader::take(std::span<const uint8_t> page) {
    if (wire::reply_status(page) != 0) {
        return refused(page, "a page of its catalogue");
    }
    const std::optional<uint32_t> count = list_ == VEXO_SESSION_METHOD
                                              ? add_rows<wire::MethodPage>(page)
                                              : add_rows<wire::VariablePage>(page);
    if (!count) {
        return failure(VEXO_SESSION_OUT_OF_STEP, "a page of the catalogue makes no sense");
    }
    first_ += *count;
    if (*count == 0 && first_ == 0 && ++empty_pages_ <= kEmptyPages) {
        return std::nullopt;
    }
    if (*count < page_size_) {
        next_list();
    }
    return std::nullopt;
}

// The kinds are bits in the order of the lists.
void CatalogueReader::next_list() {
    first_ = 0;
    empty_pages_ = 0;
    list_ <<= 1;
    if (complete()) {
        catalogue_->complete();
    }
}

}  // namespace vexo::session
