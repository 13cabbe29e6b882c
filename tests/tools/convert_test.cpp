// vexo convert, and vexo-sim --replay: there and back, with nothing lost on the way.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>

#include "tests/capture/conversation.h"
#include "tests/support/process.h"
#include "tests/support/program.h"
#include "tests/tools/tool.h"
#include "tools/mcap/reader.h"

using test::own_loopback;

namespace {

void record(const std::string& file, const std::string& host) {
    const test::Outcome run =
        test::vexo({"record", "--all", "-D", "0.4", "-o", file, "-H", host, "--timeout", "60"});
    ASSERT_EQ(run.status, 0) << run.err;
}

std::vector<mcap::Bytes> data_of(const std::string& path) {
    std::vector<mcap::Bytes> all;
    mcap::Reader reader(path);
    const mcap::Found found = reader.read([&](const mcap::Message& message) {
        all.emplace_back(message.data.begin(), message.data.end());
    });
    EXPECT_TRUE(found.complete) << path;
    return all;
}

using Cells = std::vector<std::string>;

// As PlotJuggler's loader takes a table: commas count outside of quotes only, and lines with
// another number of cells than the header are dropped.
std::vector<Cells> loaded(const std::string& text) {
    std::vector<Cells> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        Cells cells(1);
        bool quoted = false;
        for (const char letter : line) {
            quoted = quoted != (letter == '"');
            if (letter == ',' && !quoted) {
                cells.emplace_back();
            } else {
                cells.back() += letter;
            }
        }
        if (lines.empty() || cells.size() == lines[0].size()) {
            lines.push_back(std::move(cells));
        }
    }
    return lines;
}

// What it would take for a date, or for the end of the numbers.
bool is_misread(const std::string& cell, bool first_line) {
    std::string small = cell.substr(0, 3);
    std::transform(small.begin(), small.end(), small.begin(), tolower);
    bool date = false;
    if (first_line && cell.find_first_not_of("0123456789") == std::string::npos) {
        const double value = std::strtod(cell.c_str(), nullptr);
        for (const double unit : {1.0, 1e3, 1e6, 1e9}) {
            date = date || (value > 1.4e9 * unit && value < 2e9 * unit);
        }
    }
    return date || small == "nan";
}

}  // namespace

TEST(Convert, BringsTablesAndBackAndRepairs) {
    test::Program simulator({VEXO_SIM, "-a", own_loopback()});
    ASSERT_TRUE(simulator.ready());
    record("a.mcap", own_loopback());
    const size_t packages = data_of("a.mcap").size();

    EXPECT_EQ(test::vexo({"convert", "a.mcap", "a.csv"}).status, 0);
    const std::string text = test::read_file("a.csv");
    const std::vector<Cells> lines = loaded(text);
    ASSERT_EQ(lines.size(), packages + 1);
    const std::set<std::string> names(lines[0].begin(), lines[0].end());
    EXPECT_EQ(names.size(), lines[0].size());
    EXPECT_EQ(lines[0].front(), "time");
    EXPECT_TRUE(names.contains("actual_joint_positions[5]"));
    for (size_t line = 1; line < lines.size(); ++line) {
        EXPECT_EQ(lines[line].back(), "1");
        for (const std::string& cell : lines[line]) {
            EXPECT_FALSE(is_misread(cell, line == 1)) << cell;
        }
    }
    // A last line that was cut is dropped, or all its values are whole.
    const size_t last = text.rfind('\n', text.size() - 2) + 1;
    const std::string header = text.substr(0, text.find('\n') + 1);
    for (size_t end = last + 1; end < text.size(); ++end) {
        const std::vector<Cells> left = loaded(header + text.substr(last, end - last));
        ASSERT_LE(left.size(), 2U);
        EXPECT_TRUE(left.size() == 1 ||
                    std::equal(left[1].begin(), left[1].end() - 1, lines.back().begin()))
            << end;
        end += end - last < 2000 ? 20 : 0;
    }

    EXPECT_EQ(test::vexo({"convert", "a.csv", "b.mcap"}).status, 0);
    EXPECT_EQ(test::vexo({"convert", "b.mcap", "b.csv"}).status, 0);
    EXPECT_TRUE(test::read_file("b.csv") == text);
    std::ofstream("cut.csv") << text.substr(0, text.size() - 3);
    EXPECT_EQ(test::vexo({"convert", "cut.csv", "c.mcap"}).status, 3);
    EXPECT_EQ(data_of("c.mcap").size(), packages - 1);

    std::filesystem::copy("a.mcap", "cut.mcap");
    std::filesystem::resize_file("cut.mcap", std::filesystem::file_size("cut.mcap") * 2 / 3);
    EXPECT_EQ(test::vexo({"convert", "cut.mcap", "d.csv"}).status, 1);
    EXPECT_EQ(test::vexo({"convert", "--repair", "cut.mcap", "d.mcap"}).status, 3);
    EXPECT_GT(data_of("d.mcap").size(), packages / 3);
    EXPECT_EQ(test::vexo({"convert", "d.mcap", "d.csv"}).status, 0);
    EXPECT_EQ(test::vexo({"convert", "a.mcap", "d.mcap"}).status, 2);
    EXPECT_EQ(test::vexo({"convert", "--repair", "a.mcap", "d.mcap"}).status, 1);
    EXPECT_EQ(test::vexo({"convert", "a.csv", "d.mcap"}).status, 1);
    std::ofstream("none.mcap") << "no recording";
    EXPECT_EQ(test::vexo({"convert", "none.mcap", "none.csv"}).status, 1);
}

// What passed by on the wire, in a file of nanoseconds and Ethernet packets.
TEST(Convert, TakesThePackagesOfACapture) {
    test::Conversation talk;
    talk.set_up(2);
    for (uint32_t count = 1; count <= 30; ++count) {
        talk.send(2299, true, test::Conversation::package(count));
    }
    test::Bytes bytes;
    sim::Writer file(bytes);
    for (const uint32_t word : {0xA1B23C4DU, 0x00040002U, 0U, 0U, 65535U, 1U}) {
        file.number(word);
    }
    for (const test::Taken& packet : talk.packets) {
        const auto size = static_cast<uint32_t>(packet.bytes.size());
        for (const int64_t word : {packet.time_ns / 1'000'000'000, packet.time_ns % 1'000'000'000,
                                   int64_t{size}, int64_t{size}}) {
            file.number(static_cast<uint32_t>(word));
        }
        file.bytes(packet.bytes);
    }
    std::ofstream("a.pcap").write(reinterpret_cast<const char*>(bytes.data()),
                                  static_cast<std::streamsize>(bytes.size()));
    const test::Outcome run = test::vexo({"convert", "a.pcap", "a.mcap"});
    EXPECT_EQ(run.status, 0) << run.err;
    const std::vector<mcap::Bytes> data = data_of("a.mcap");
    ASSERT_EQ(data.size(), 30U);
    for (uint32_t count = 1; count <= data.size(); ++count) {
        EXPECT_EQ(data[count - 1][4], count);  // behind what every value begins with
    }
}

TEST(Replay, SendsTheSamePackagesWithTheirTiming) {
    {
        test::Program simulator({VEXO_SIM, "-a", own_loopback(), "-r", "250"});
        ASSERT_TRUE(simulator.ready());
        record("a.mcap", own_loopback());
    }
    test::Program again({VEXO_SIM, "-a", own_loopback(2), "--replay", "a.mcap"});
    ASSERT_TRUE(again.ready());
    record("b.mcap", own_loopback(2));
    const std::vector<mcap::Bytes> sent = data_of("a.mcap");
    const std::vector<mcap::Bytes> got = data_of("b.mcap");
    ASSERT_GT(got.size(), 20U);
    EXPECT_LT(got.size(), 250U);  // in 0.4 s at 250 Hz, not at 1000 Hz
    for (size_t i = 0; i < got.size(); ++i) {
        EXPECT_EQ(got[i], sent[i % sent.size()]) << i;
    }
}
