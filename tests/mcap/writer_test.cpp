// Files while they are written, where writes fail, and where bytes are not what they were.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>

#include "tests/support/process.h"
#include "tools/mcap/reader.h"
#include "tools/mcap/writer.h"

using mcap::Found;
using mcap::Message;
using mcap::Reader;
using mcap::Writer;

namespace {

std::atomic<size_t> g_allocations{0};

mcap::Contents contents() {
    return {{{"/one", "package/One", "uint8 one\n", {{"key", "value"}}},
             {"/two", "T", "uint8 two\n", {}}},
            {{"a.json", "application/json", std::string(5000, '{')}},
            {{"facts", {{"host", "here"}}}}};
}

// Messages tell their number in all places that they have.
Message message(uint32_t number, const mcap::Bytes& data) {
    return {static_cast<uint16_t>(1 + number % 2), number, 1000 + number, 500 + number, data};
}

bool add(Writer& writer, uint32_t number) {
    return writer.add(
        message(number, mcap::Bytes(100 + number % 50, static_cast<uint8_t>(number))));
}

struct Contained {
    Found found;
    uint64_t messages;  // one after the other, from 0 on
};

Contained read(const std::string& path) {
    Reader reader(path);
    uint64_t next = 0;
    const Found found = reader.read([&](const Message& got) {
        const auto number = static_cast<uint32_t>(next);
        const mcap::Bytes data(100 + number % 50, static_cast<uint8_t>(number));
        EXPECT_EQ(got.channel, message(number, data).channel);
        EXPECT_EQ(got.sequence, number);
        EXPECT_EQ(got.log_time, 1000 + next);
        EXPECT_EQ(got.publish_time, 500 + next);
        EXPECT_TRUE(std::equal(got.data.begin(), got.data.end(), data.begin(), data.end()));
        ++next;
    });
    return {found, next};
}

}  // namespace

void* operator new(size_t size) {
    ++g_allocations;
    return std::malloc(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}

TEST(Writer, IsCompleteBehindEachFlushAndAllocatesNothing) {
    Writer writer(contents());
    ASSERT_EQ(writer.open("file.mcap"), 0);
    EXPECT_EQ(Writer(contents()).open("file.mcap"), EEXIST);
    uint32_t number = 0;
    for (int flush = 0; flush < 400; ++flush) {
        const mcap::Bytes data(150, 1);  // the data of add() would be allocated
        const size_t before = g_allocations;
        for (int i = 0; i < 40; ++i, ++number) {
            writer.add({1, number, number, number, data});
        }
        EXPECT_EQ(writer.flush(), 0);
        EXPECT_EQ(g_allocations, before);
        if (flush % 20 == 0) {
            const Found found = Reader("file.mcap").survey();
            EXPECT_TRUE(found.complete);
            EXPECT_EQ(found.damaged, 0U);
            EXPECT_EQ(found.messages, number);
        }
    }
    const uint64_t before = std::filesystem::file_size("file.mcap");
    EXPECT_EQ(writer.close(), 0);
    EXPECT_LT(std::filesystem::file_size("file.mcap"), before);
    Reader reader("file.mcap");
    EXPECT_EQ(reader.survey().messages, 16000U);
    EXPECT_EQ(reader.channels().at(1).metadata.at("key"), "value");
    EXPECT_EQ(reader.channels().at(2).topic, "/two");
    EXPECT_EQ(reader.attachments().at(0).data.size(), 5000U);
    EXPECT_EQ(reader.metadata().at(0).texts.at("host"), "here");
}

// Wherever a write fails, the file is as it was, and goes on when there is room again.
TEST(Writer, SurvivesWritesThatFailAtAnyPlace) {
    signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlim_t unlimited = limit.rlim_cur;
    uint64_t failures = 0;
    for (rlim_t room = 1000; room < 1'500'000; room += 37'777) {
        std::filesystem::remove("file.mcap");
        Writer writer(contents());
        limit.rlim_cur = room;
        setrlimit(RLIMIT_FSIZE, &limit);
        const bool opened = writer.open("file.mcap") == 0;
        uint32_t number = 0;
        int error = opened ? 0 : EFBIG;
        for (int flush = 0; flush < 60 && error == 0; ++flush) {
            for (int i = 0; i < 50; ++i) {
                add(writer, number++);
            }
            error = writer.flush();
            failures += error != 0 ? 1 : 0;
        }
        EXPECT_TRUE(error == 0 || error == EFBIG) << error;
        if (opened) {
            const auto [found, messages] = read("file.mcap");
            EXPECT_TRUE(found.complete) << room;
            EXPECT_EQ(messages, number - writer.pending());
        }
        limit.rlim_cur = unlimited;
        setrlimit(RLIMIT_FSIZE, &limit);
        if (!opened) {
            EXPECT_FALSE(std::filesystem::exists("file.mcap"));
            EXPECT_FALSE(std::filesystem::exists("file.mcap.part"));
            continue;
        }
        EXPECT_EQ(writer.close(), 0);
        const auto [found, messages] = read("file.mcap");
        EXPECT_TRUE(found.complete && found.damaged == 0) << room;
        EXPECT_EQ(messages, number);
    }
    EXPECT_GT(failures, 5U);
}

TEST(Writer, SaysThatItsFileIsGoneAndKeepsWhatItHas) {
    Writer writer(contents());
    ASSERT_EQ(writer.open("file.mcap"), 0);
    add(writer, 0);
    std::filesystem::remove("file.mcap");
    EXPECT_EQ(writer.flush(), ENOENT);
    writer.abandon();
    ASSERT_EQ(writer.open("other.mcap"), 0);
    EXPECT_EQ(writer.close(), 0);
    EXPECT_EQ(read("other.mcap").messages, 1U);
}

// Files that were cut, or whose bytes have changed, give what is sound of them and nothing else.
TEST(Reader, TakesAnyBytes) {
    {
        Writer writer(contents());
        ASSERT_EQ(writer.open("file.mcap"), 0);
        for (uint32_t number = 0; number < 60; ++number) {
            add(writer, number);
            EXPECT_EQ(number % 10 == 9 ? writer.flush() : 0, 0);
        }
        EXPECT_EQ(writer.close(), 0);
    }
    const std::string file = test::read_file("file.mcap");
    uint64_t most = 0;
    for (size_t size = 8; size < file.size(); size += 53) {
        std::ofstream("cut.mcap") << file.substr(0, size);
        const auto [found, messages] = read("cut.mcap");
        EXPECT_FALSE(found.complete && found.messages != 60);
        EXPECT_GE(messages, most);
        most = messages;
    }
    EXPECT_GE(most, 50U);
    uint64_t skipped = 0;
    for (size_t place = 8; place < file.size(); place += 29) {
        std::string changed = file;
        changed[place] = static_cast<char>(changed[place] ^ 0x15);
        std::ofstream("changed.mcap") << changed;
        Reader reader("changed.mcap");
        const Found found = reader.read([](const Message& got) { EXPECT_LT(got.sequence, 60U); });
        EXPECT_LE(found.messages, 60U);
        skipped += found.messages < 60 ? 1 : 0;
    }
    EXPECT_GT(skipped, 100U);
    std::ofstream("none.mcap") << "no recording";
    EXPECT_THROW(Reader("none.mcap"), std::runtime_error);
    EXPECT_THROW(Reader("missing.mcap"), std::system_error);
}
