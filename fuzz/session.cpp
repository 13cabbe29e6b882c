// Without this the cuts of what a controller sends could change what a session makes of it, or a
// page of its catalogue be read past its end.
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/input.h"
#include "session/catalogue_reader.h"
#include "session/package_reader.h"
#include "session/reply_buffer.h"

using namespace fuzz;
using namespace vexo::session;

namespace {

using Pieces = std::vector<std::vector<uint8_t>>;

// Hands the stream over in pieces. `take` gets what has come, and says whether it goes on.
template <typename Buffer, typename Take>
void receive(Buffer& buffer, Span stream, size_t piece, Take take) {
    while (!stream.empty()) {
        const std::span<uint8_t> room = buffer.room();
        const size_t count = std::min({room.size(), piece, stream.size()});
        check(count > 0, "there is always room for more");
        std::memcpy(room.data(), stream.data(), count);
        buffer.received(count);
        stream = stream.subspan(count);
        if (!take()) {
            return;
        }
    }
}

Pieces packages(Span stream, uint8_t recipe, size_t length, size_t piece) {
    PackageReader reader;
    reader.expect(recipe, length);
    Pieces found;
    receive(reader, stream, piece, [&] {
        for (;;) {
            Span values;
            const PackageReader::Found what = reader.next(values);
            if (what == PackageReader::Found::nothing) {
                return true;
            }
            found.push_back({static_cast<uint8_t>(what)});
            if (what == PackageReader::Found::no_header) {
                return false;
            }
            if (what == PackageReader::Found::package) {
                check(values.size() + vexo::wire::kPackageHeader == length, "a package is whole");
                found.emplace_back(values.begin(), values.end());
            }
        }
    });
    return found;
}

Pieces replies(Span stream, size_t piece) {
    ReplyBuffer buffer;
    Pieces found;
    receive(buffer, stream, piece, [&] {
        for (Span reply = buffer.next(); !reply.empty(); reply = buffer.next()) {
            found.emplace_back(reply.begin(), reply.end());
        }
        return !buffer.out_of_step();
    });
    return found;
}

// Reads the replies as pages of the three lists.
void read_catalogue(const Pieces& pages, uint32_t version) {
    CatalogueReader reader;
    reader.begin(version);
    for (const auto& page : pages) {
        if (reader.complete() || reader.take(page)) {
            break;
        }
    }
    const Catalogue& catalogue = *reader.catalogue();
    for (const uint32_t kind : {VEXO_SESSION_OUTPUT, VEXO_SESSION_INPUT, VEXO_SESSION_METHOD}) {
        for (const Entry& entry : catalogue.list(kind)) {
            check(describe(entry).bytes <= UINT8_MAX, "a value has 255 bytes at most");
            check(!reader.complete() || catalogue.find(kind, entry.name) != nullptr,
                  "what is listed is found");
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const uint8_t recipe = input.u8();
    const size_t length = input.u16();
    const size_t piece = 1u + input.u8();
    const Span stream = input.rest();
    const size_t whole = stream.size() + 1;
    if (length == 0 || length >= vexo::wire::kPackageHeader) {
        check(packages(stream, recipe, length, piece) == packages(stream, recipe, length, whole),
              "the cuts of a stream of packages change nothing");
    }
    const Pieces pages = replies(stream, whole);
    check(replies(stream, piece) == pages, "the cuts of a stream of replies change nothing");
    read_catalogue(pages, recipe);
    return 0;
}
