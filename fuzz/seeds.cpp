// Makes the seeds of the corpora: runs a session with the simulator, over TCP and over raw frames,
// and keeps what the simulator said.
//
// Usage: fuzz_seeds DIRECTORY   (a directory in it for each target)
#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <sys/socket.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <vector>

#include "client/commands.h"
#include "client/dataspace.h"
#include "client/vexo.h"
#include "net/raw_socket.h"
#include "sim/simulator.h"
#include "tests/support/network_namespace.h"
#include "tests/support/process.h"
#include "wire/frame.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr char kAddress[] = "127.0.0.1";
constexpr size_t kFrameCode = 15;

std::filesystem::path root;

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes u16(size_t value) {
    return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8)};
}

void require(bool holds, const std::string& what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

void save(const std::string& target, const Bytes& input) {
    static int number = 0;
    std::filesystem::create_directories(root / target);
    std::ofstream file(root / target / ("seed-" + std::to_string(++number)), std::ios::binary);
    file.write(reinterpret_cast<const char*>(input.data()),
               static_cast<std::streamsize>(input.size()));
    require(file.good(), "cannot write to " + root.string());
}

// A handle for the simulator.
struct Client {
    explicit Client(int64_t mode) {
        require(vexo_create_handle(&handle, kAddress) == 0 &&
                    vexo_create(handle, kAddress, "seeds0", mode, nullptr) == 0 &&
                    vexo_protocol_version_request(handle, mode, 0) == 0,
                "cannot connect to the simulator");
    }

    // The latest reply, by its own length word.
    Bytes reply() const {
        const auto& d = *reinterpret_cast<vexo::Dataspace*>(get_vexo_dataspace(handle));
        const auto length = static_cast<size_t>(d.response[0] | d.response[1] << 8);
        return {d.response, d.response + length};
    }

    uint32_t handle = 0;
};

// For the targets that take one reply; the latter half of the seeds comes in pieces.
void save_reply(const std::string& target, const Bytes& reply) {
    save(target, u16(0) + reply);
    save(target, u16(0x8000 | 700) + reply);
    save("reply", reply);
}

template <typename Page, typename Array>
Bytes save_pages(const Client& client, const std::string& target,
                 int32_t (*get)(uint32_t, uint32_t, Array*)) {
    Bytes all;
    const auto page = std::make_unique<Page>();
    uint32_t first = 0;
    do {
        require(get(client.handle, first, reinterpret_cast<Array*>(page.get())) == 0,
                "cannot read a page");
        save_reply(target, client.reply());
        save("catalogue_page", client.reply());
        all = std::move(all) + u16(0) + u16(client.reply().size()) + client.reply();
        first += page->count;
    } while (page->count == VEXO_PAGE_ROWS);
    return all;
}

void save_catalogue(const Client& client) {
    const Bytes outputs =
        save_pages<VexoVariablePage>(client, "output_page", vexo_output_variables_get);
    const Bytes inputs =
        save_pages<VexoVariablePage>(client, "output_page", vexo_input_variables_get);
    const Bytes methods =
        save_pages<VexoMethodPage>(client, "method_page", vexo_control_methods_get);
    save("catalogue", Bytes{1} + outputs + inputs + methods);
    require(vexo_all_recipe_get(client.handle) == 0, "cannot read the catalogue");
}

void save_commands(const Client& client, sim::Simulator& simulator) {
    uint64_t bits = 0;
    const int32_t row = find_method_index(client.handle, "getAllDigitalInputBits");
    simulator.set_digital_inputs(0xF0F);
    require(vexo_set_getalldigitalinputbits(client.handle, row, &bits) == 0, "cannot read bits");
    save_reply("bit_read", client.reply());
    VexoControllerVersion version{};
    require(vexo_get_control_version(client.handle, &version) == 0, "cannot ask for the version");
    save_reply("controller_version", client.reply());
    simulator.inject(sim::parse_fault("status=5"));
    require(vexo_set_getalldigitalinputbits(client.handle, row, &bits) == 5, "was not refused");
    save_reply("bit_read", client.reply());
}

void set_up_recipes(const Client& client) {
    std::array<uint32_t, 3> rows{};
    multi_find(client.handle, "package_counter,controller_time,actual_joint_positions",
               VEXO_FIND_OUTPUT, reinterpret_cast<int32_t*>(rows.data()));
    uint32_t recipe = 0;
    require(vexo_output_setup_send(client.handle, rows.size(), rows.data(), 0, &recipe) == 0,
            "cannot set up a recipe");
    Bytes input = u16(rows.size());
    for (const uint32_t row : rows) {
        input = std::move(input) + u16(row) + u16(row >> 16);
    }
    save("recipe_reply", input + u16(0) + client.reply());
}

// The packages that show up, one after another, as the stream brings them.
void save_stream(const Client& client) {
    require(vexo_output_start(client.handle, 0) == 0, "cannot start the stream");
    Bytes stream;
    Bytes latest;
    for (int packages = 0; packages < 5;) {
        Bytes package(256);
        vexo_ouput_data_receive(client.handle, 0, package.data(), 256);
        package.resize(package[0]);
        if (package != latest) {
            latest = package;
            stream = std::move(stream) + package;
            ++packages;
        }
    }
    save("output_stream", u16(latest.size()) + Bytes{20} + stream);
    save("output_stream", u16(latest.size() - 10) + Bytes{200} + stream);
}

// One frame of each code that crosses the link.
void save_frames(const Client& client, int capture) {
    const std::array<double, 6> target{};
    cvexo_servoj(client.handle, find_method_index(client.handle, "servoJ"), 0.001, 0, nullptr,
                 target.size(), target.data());
    std::array<bool, 256> seen{};
    for (int frames = 0; frames < 1000 && !(seen[144] && seen[146]); ++frames) {
        Bytes frame(2048);
        sockaddr_ll from{};
        socklen_t size = sizeof from;
        const ssize_t got = recvfrom(capture, frame.data(), frame.size(), 0,
                                     reinterpret_cast<sockaddr*>(&from), &size);
        frame.resize(static_cast<size_t>(std::max<ssize_t>(got, 0)));
        if (frame.size() > kFrameCode && from.sll_pkttype == PACKET_HOST &&
            !seen[frame[kFrameCode]]) {
            seen[frame[kFrameCode]] = true;
            const Bytes tag = {0x81, 0x00, 0x00, 0x05};
            for (const char* taker : {"ethernet_frame", "received_frame"}) {
                save(taker, Bytes{0} + frame);
                Bytes tagged = frame;
                tagged.insert(tagged.begin() + 12, tag.begin(), tag.end());
                save(taker, Bytes{0} + tagged);
            }
        }
    }
    require(seen[144] && seen[146], "no frames came");
}

// The simulator speaks no IP mode: a datagram of the library's own.
void save_datagram() {
    Bytes message(vexo::wire::kIpHeader + 4);
    vexo::wire::seal_ip_message(144, 0, message);
    Bytes header(20);
    header[0] = 0x45;
    header[12] = 127;
    header[15] = 1;
    save("ip_datagram", header + message);
}

void save_texts_and_calls() {
    for (const std::string list : {"a,b,zz", "aa,,b", "a, b,", ""}) {
        for (uint8_t kind = 0; kind < 4; ++kind) {
            save("name_list", Bytes{kind} + Bytes(list.begin(), list.end()));
        }
    }
    const Bytes send{0, 1, 3, 0, 'a', 'b', 'c'};
    const Bytes hand_in{2, 1, 3, 0, 'x', 'y', 'z'};
    const Bytes receive{1, 1, 2, 0};
    save("serial_mailbox", send + Bytes{3, 0} + hand_in + receive + Bytes{4, 1, 5, 1});
    save("serial_mailbox", hand_in + send + receive + Bytes{2, 2} + u16(1100) + Bytes(1100, 'q'));
}

void run() {
    const std::string refusal = test::enter_network_namespace();
    require(refusal.empty(), refusal);
    test::make_veth_pair("seeds0", "02:00:00:00:00:01", "seeds1", "02:00:00:00:00:02");
    const int capture = socket(AF_PACKET, SOCK_RAW, htons(vexo::wire::kEtherType));
    sim::Options options;
    options.address = kAddress;
    options.interface = "seeds1";
    sim::Simulator simulator(options);
    {
        const Client client(2);
        save_reply("version_reply", client.reply());
        save_catalogue(client);
        save_commands(client, simulator);
        set_up_recipes(client);
        // A session of the simulator's ends with its connection.
        const auto& d = *reinterpret_cast<vexo::Dataspace*>(get_vexo_dataspace(client.handle));
        shutdown(d.io_socket, SHUT_RDWR);
    }
    const Client client(3);
    save_reply("version_reply", client.reply());
    require(vexo_all_recipe_get(client.handle) == 0, "cannot read the catalogue");
    set_up_recipes(client);
    save_stream(client);
    save_frames(client, capture);
    save_datagram();
    save_texts_and_calls();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: " << argv[0] << " DIRECTORY\n";
        return 2;
    }
    root = std::filesystem::absolute(argv[1]);
    try {
        run();
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
    return 0;
}
