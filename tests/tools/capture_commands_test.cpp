// What the tool shows of streams that others hold: from files, and from an interface.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "tests/capture/conversation.h"
#include "tests/support/network_namespace.h"
#include "tests/support/process.h"
#include "tests/tools/tool.h"

using test::Bytes;
using test::Conversation;
using test::Outcome;

namespace {

void write_pcap(const char* path, const std::vector<test::Taken>& packets) {
    Bytes bytes;
    sim::Writer out(bytes);
    const auto words = [&](std::initializer_list<uint32_t> values) {
        for (const uint32_t value : values) {
            out.number(value);
        }
    };
    words({0xA1B23C4D, 0x00040002, 0, 0, 65535, 1});  // nanoseconds, Ethernet
    for (const test::Taken& packet : packets) {
        const auto size = static_cast<uint32_t>(packet.bytes.size());
        words({static_cast<uint32_t>(packet.time_ns / 1'000'000'000),
               static_cast<uint32_t>(packet.time_ns % 1'000'000'000), size, size});
        out.bytes(packet.bytes);
    }
    std::ofstream(path).write(reinterpret_cast<const char*>(bytes.data()),
                              static_cast<std::streamsize>(bytes.size()));
}

// A whole session, and the same without its begin and with a package missing.
void write_files() {
    Conversation all;
    all.set_up(0x10003);
    const size_t begin = all.packets.size();
    for (uint32_t count = 1; count <= 5; ++count) {
        all.send_frame(static_cast<uint16_t>(count), Conversation::package(count));
    }
    write_pcap("whole.pcap", all.packets);
    all.packets.erase(all.packets.begin() + static_cast<ptrdiff_t>(begin) + 2);
    write_pcap("lossy.pcap", all.packets);
    all.packets.erase(all.packets.begin(), all.packets.begin() + static_cast<ptrdiff_t>(begin));
    write_pcap("middle.pcap", all.packets);
    write_pcap("nothing.pcap", {});
    std::ofstream("broken.json") << "{\"outputs\": [{\"name\": \"x\"}]}";
    std::ofstream("catalogue.json") << R"({"outputs": [
        {"name": "counter", "id": 1, "type": 4}, {"name": "joints", "id": 2, "type": 13}]})";
}

}  // namespace

TEST(CaptureFile, IsShownAsAStreamIs) {
    write_files();
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string out;
        std::string err;  // a part of it
    } cases[] = {
        {{"read", "speed", "counter", "--capture", "whole.pcap"}, 1, "", "no \"speed\""},
        {{"watch", "counter", "--capture", "whole.pcap", "-t", "zero"},
         0,
         "0.000000000  counter=1\n0.001000000  counter=2\n0.002000000  counter=3\n"
         "0.003000000  counter=4\n0.004000000  counter=5\n",
         "5 packages, 0 lost"},
        {{"watch", "counter", "--capture", "lossy.pcap", "-t", "zero", "-H", "10.0.0.2"},
         3,
         "0.000000000  counter=1\n0.001000000  counter=2\n0.003000000  counter=4  1 lost before\n"
         "0.004000000  counter=5\n",
         "4 packages, 1 lost"},
        {{"read", "counter", "--capture", "whole.pcap", "-H", "10.0.0.3"}, 1, "", "No package"},
        {{"read", "pink", "--capture", "whole.pcap"}, 1, "", "it has counter, joints"},
        {{"read", "counter", "--capture", "middle.pcap"}, 1, "", "their set-up did not"},
        {{"read", "counter", "--capture", "middle.pcap", "--catalogue", "catalogue.json",
          "--recipe", "counter,joints"},
         0,
         "counter=1\n",
         ""},
        {{"read", "counter", "--capture", "middle.pcap", "--catalogue", "catalogue.json",
          "--recipe", "counter,pink"},
         1,
         "",
         "no variable \"pink\""},
        {{"read", "counter", "--capture", "middle.pcap", "--catalogue", "broken.json"},
         1,
         "",
         "makes no sense"},
        {{"read", "counter", "--capture", "nothing.pcap"}, 1, "", "No package"},
        {{"read", "counter", "--capture", "catalogue.json"}, 1, "", "Cannot read"},
        {{"read", "counter", "--recipe", "counter"}, 2, "", "--capture"},
        {{"list", "--capture", "nothing.pcap"}, 1, "", "No page"},
        {{"list", "--capture", "whole.pcap"},
         0,
         "output  counter      7 u32       4\noutput  other        8 text    255\n"
         "output  joints       9 f64x6    48\ninput   speed      100 f64       8\n",
         ""},
        {{"info", "--capture", "whole.pcap"}, 2, "", "no --capture"},
    };
    for (const auto& [arguments, status, out, err] : cases) {
        const Outcome run = test::vexo(arguments);
        EXPECT_EQ(run.status, status) << testing::PrintToString(arguments) << run.err;
        EXPECT_EQ(run.out, out) << testing::PrintToString(arguments);
        EXPECT_THAT(run.err, testing::HasSubstr(err)) << testing::PrintToString(arguments);
    }
}

// While another holds the stream, on both paths. What listens sends nothing.
TEST(CaptureInterface, IsListenedTo) {
    if (const std::string reason = test::enter_network_namespace(); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    test::make_veth_pair("host0", "02:00:00:00:00:0A", "robot0", "02:00:00:00:00:0B");
    const test::SimulatedRobot robot({"-i", "robot0"});
    std::ofstream("listen") << R"sh(
        vexo=$1 address=$2 names="package_counter heartbeat"
        # listen WHERE OPTION...: what WHERE shows of a stream that is held with these options
        listen() {
            "$vexo" watch package_counter -n 3 -v -t zero --timeout 60 --capture $1 >heard 2>notes &
            local listener=$!
            while kill -0 $listener && ! grep -q listening notes; do sleep 0.01; done
            shift
            "$vexo" watch $names -n 100 -q -H $address --timeout 60 "$@" >/dev/null
            wait $listener
            echo "$? $(sed 's/.*  //' heard | xargs)"
        }
        sent() { sed -n 's/^ *host0: *//p' /proc/self/net/dev | awk '{print $10}'; }
        before=$(sent)
        "$vexo" read package_counter --capture host0 --timeout 0.3 2>/dev/null
        echo "$? sent $(($(sent) - before))"
        listen lo
        listen any --raw host0)sh";
    const Outcome run = test::run_program({"bash", "listen", VEXO_TOOL, test::own_loopback()});
    const std::string first = "0 package_counter=1 package_counter=2 package_counter=3\n";
    EXPECT_EQ(run.out, "4 sent 0\n" + first + first) << run.err << test::read_file("notes");
}
