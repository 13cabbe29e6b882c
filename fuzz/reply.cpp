// Without this a reply could be read beyond its end, or out of step with its bytes.
#include "fuzz/input.h"
#include "wire/controller_version.h"
#include "wire/method_call.h"
#include "wire/negotiation.h"
#include "wire/package.h"
#include "wire/recipe.h"

using namespace fuzz;
using namespace vexo::wire;

namespace {

uint8_t at(Span reply, size_t position) {
    return position < reply.size() ? reply[position] : 0;
}

void check_text(Span reply, size_t& position, std::string_view text) {
    const uint8_t length = at(reply, position++);
    const Span rest = reply.subspan(std::min(position, reply.size()));
    check(same_bytes(text, rest.first(std::min<size_t>(length, rest.size()))),
          "a text ends with the reply");
    position += length;
}

void check_version(Span reply) {
    const ControllerVersion version = controller_version(reply);
    check(version.model == (at(reply, 7) | at(reply, 8) << 8), "the model is the reply's");
    size_t position = 9;
    for (const std::string_view text : {version.firmware, version.hardware, version.bootloader}) {
        check_text(reply, position, text);
    }
    check(version.complete == (position <= reply.size()), "a version that ends early is known");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Span reply(data, size);
    const ReplyHeader header = reply_header(reply);
    check(header.length == (at(reply, 0) | at(reply, 1) << 8) && header.letter == at(reply, 2) &&
              header.status == at(reply, 3) && reply_status(reply) == header.status &&
              message_length(reply) == header.length,
          "the header is the reply's");
    const PackageHeader package = package_header(reply);
    check(package.length == header.length && package.recipe == at(reply, 3) &&
              package.plausible() == (package.letter == 'U' && package.length >= 4),
          "a package has the header that it says");
    check(recipe_id(reply) == at(reply, 7), "a recipe's number is the reply's");
    const MacBytes mac = controller_mac(reply);
    const BitsReply bits = bits_reply(reply);
    for (size_t i = 0; i < 8; ++i) {
        check(i >= mac.size() || mac[i] == at(reply, 7 + i), "an address is the reply's");
        check(static_cast<uint8_t>(bits.bits >> (8 * i)) == at(reply, 7 + i),
              "the bits are the reply's");
    }
    check_version(reply);
    return 0;
}
