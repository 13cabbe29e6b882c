// What is received, byte by byte.
#include <gtest/gtest.h>

#include <sstream>

#include "tests/support/scripted_peer.h"
#include "wire/catalogue.h"
#include "wire/controller_version.h"
#include "wire/method_call.h"
#include "wire/negotiation.h"
#include "wire/package.h"
#include "wire/recipe.h"

namespace test {
namespace {

using namespace vexo::wire;
using Reply = std::span<const uint8_t>;

// A text as far as it has characters: what the reply does not hold of it may be left out or zero.
std::string quoted(std::string_view text) {
    return "'" + std::string(text.substr(0, text.find('\0'))) + "'";
}

template <typename Row>
std::string page(Reply reply, bool& ok, std::string (*describe)(const Row&)) {
    Page<Row> page(reply);
    std::string text = std::to_string(page.count());
    for (int i = 0; i < page.count(); ++i) {
        text += " " + describe(page.next());
    }
    ok = page.ok();
    return text;
}

std::string variables(Reply reply, bool& ok) {
    return page<VariableRow>(reply, ok, [](const VariableRow& row) {
        return quoted(row.name) + " " + std::to_string(row.id) + ":" + std::to_string(row.type);
    });
}

std::string methods(Reply reply, bool& ok) {
    return page<MethodRow>(reply, ok, [](const MethodRow& row) {
        return quoted(row.name) + " " + std::to_string(row.id);
    });
}

std::string version(Reply reply, bool& ok) {
    const ControllerVersion version = controller_version(reply);
    ok = version.complete;
    return std::to_string(version.model) + " " + quoted(version.firmware) + " " +
           quoted(version.hardware) + " " + quoted(version.bootloader);
}

std::string header(Reply reply, bool&) {
    const ReplyHeader header = reply_header(reply);
    std::ostringstream text;
    text << header.length << " " << int{header.letter} << " " << int{header.status} << " "
         << message_length(reply) << " " << int{reply_status(reply)};
    return text.str();
}

std::string mac(Reply reply, bool&) {
    const MacBytes mac = controller_mac(reply);
    return hex(Bytes(mac.begin(), mac.end()));
}

std::string bits(Reply reply, bool&) {
    const BitsReply read = bits_reply(reply);
    std::ostringstream text;
    text << std::hex << read.status_word << " " << read.bits;
    return text.str();
}

std::string package(Reply reply, bool&) {
    const PackageHeader header = package_header(reply);
    return std::to_string(header.length) + " " + std::to_string(header.letter) + " " +
           std::to_string(header.recipe);
}

struct Case {
    const char* name;
    const char* bytes;
    const char* meaning;
    std::string (*read)(Reply, bool& ok);
    bool tells_when_cut;
};

const Case kReplies[] = {
    {"header", "07 01 56 05", "263 86 5 263 5", header, false},
    {"negotiation", "0D 00 56 00 00 00 00 02 11 22 33 44 55", "02 11 22 33 44 55 ", mac, false},
    {"recipe", "08 00 4F 00 00 00 00 FE", "254",
     [](Reply reply, bool&) { return std::to_string(recipe_id(reply)); }, false},
    {"bits", "0F 00 6D 00 01 00 80 08 07 06 05 04 03 02 01", "80000100 102030405060708", bits,
     false},
    {"package", "06 04 55 03", "1030 85 3", package, false},
    {"variables",
     "1A 00 52 00 00 00 00 03 02 61 62 04 03 02 01 0D 00 00 00 00 00 12 01 7A FF FF FF FF FF",
     "3 'ab' 16909060:13 '' 0:18 'z' 4294967295:255", variables, true},
    {"methods", "10 00 4D 00 00 00 00 02 03 6D 6F 76 02 01 00 FF FF", "2 'mov' 258 '' 65535",
     methods, true},
    {"controller version", "11 00 76 00 00 00 00 03 01 03 31 2E 32 01 41 00", "259 '1.2' 'A' ''",
     version, true},
};

// Cut anywhere, it reads as if zeros stood behind the cut, and says so where it can.
TEST(WireReply, MeansWhatItsBytesSayAndZerosBeyondTheirEnd) {
    for (const Case& reply : kReplies) {
        const Bytes golden = bytes(reply.bytes);
        for (size_t size = 0; size <= golden.size(); ++size) {
            SCOPED_TRACE(std::string(reply.name) + " cut to " + std::to_string(size));
            const Bytes cut(golden.begin(), golden.begin() + static_cast<long>(size));
            Bytes padded = cut;
            padded.resize(1024);
            bool whole = true;
            bool ignored = true;
            EXPECT_EQ(reply.read(cut, whole), reply.read(padded, ignored));
            if (size == golden.size()) {
                EXPECT_EQ(reply.read(golden, whole), reply.meaning);
                EXPECT_TRUE(whole);
            } else if (reply.tells_when_cut) {
                EXPECT_FALSE(whole);
            }
        }
    }
}

TEST(WireReply, BeginsAPackageOnlyWithAPlausibleHeader) {
    EXPECT_TRUE(package_header(bytes("04 00 55 00")).plausible());
    EXPECT_FALSE(package_header(bytes("03 00 55 00")).plausible());
    EXPECT_FALSE(package_header(bytes("04 00 75 00")).plausible());
    EXPECT_FALSE(package_header({}).plausible());
}

}  // namespace
}  // namespace test
