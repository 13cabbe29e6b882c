// The raw path over a cable of two veth interfaces.
#include <gtest/gtest.h>

#include "sim/frame.h"
#include "tests/sim/peer.h"
#include "tests/support/network_namespace.h"
#include "tests/support/process.h"
#include "tests/support/raw_port.h"

namespace {

using test::Bench;
using test::Bytes;
using test::operator+;

constexpr const char* client_mac = "02 00 00 00 00 0A ";
constexpr const char* controller_mac = "02 00 00 00 00 0B ";

sim::Options raw_options() {
    sim::Options options;
    options.rate = 100;
    options.interface = "controller0";
    options.catalogue.outputs = {{"strange", 0x01020304, sim::Type::u32}};
    options.catalogue.inputs = {{"step", 0x33, sim::Type::u16}};
    options.catalogue.methods = {{"servoJ", 0x0301}};
    return options;
}

// servoJ with sequence number 7 and no values.
Bytes set_point() {
    return test::bytes("22 00 6D 01 03 05 0B " + test::number(0.5) + "04 07 00 00 00 02 00 " +
                       "13 01 00 0B " + test::number(0));
}

Bytes from_client(sim::FrameCode code, const Bytes& payload, sim::Fault fault = {}) {
    return sim::build_frame({{2, 0, 0, 0, 0, 0x0B}, {2, 0, 0, 0, 0, 0x0A}, code, 0, payload},
                            fault);
}

class RawPath : public ::testing::Test {
protected:
    void SetUp() override {
        if (const std::string reason = test::enter_network_namespace(); !reason.empty()) {
            GTEST_SKIP() << reason;
        }
        test::make_veth_pair("client0", "02:00:00:00:00:0a", "controller0", "02:00:00:00:00:0b");
        bench = std::make_unique<Bench>(raw_options());
        cable = test::Port::ethernet("client0");
    }
    void negotiate(const char* flags) {
        EXPECT_EQ(
            bench->io.ask("11 00 56 03 00 " + std::string(flags) + " 00 00 00 00 00 " + client_mac),
            "0D 00 56 00 00 00 00 " + std::string(controller_mac));
    }
    void start() {
        EXPECT_EQ(bench->io.ask("0D 00 4F 00 00 00 00 01 00 04 03 02 01"),
                  "08 00 4F 00 00 00 00 01 ");
        bench->io.ask("03 00 53");
    }
    void inject(const char* fault) { bench->simulator.inject(sim::parse_fault(fault)); }

    std::unique_ptr<Bench> bench;
    std::unique_ptr<test::Port> cable;
};

}  // namespace

TEST_F(RawPath, CarriesPackagesInsteadOfTheReceivePort) {
    negotiate("01");
    start();
    // Sum of the words: A690 + C8B7 + 0000 + 0800 + 0000 + 0800 + 5501 + 0403 + 0201 = 1DA4C,
    // folded DA4D, complement 25B2; with sequence 1 (0100) it is 24B2.
    const std::string head = std::string(client_mac) + controller_mac + "C8 15 A6 90 ";
    const std::string package = "08 00 00 00 08 00 55 01 04 03 02 01 ";
    EXPECT_EQ(test::hex(cable->receive()), head + "25 B2 C8 B7 00 00 " + package);
    EXPECT_EQ(test::hex(cable->receive()), head + "24 B2 C8 B7 01 00 " + package);
    EXPECT_TRUE(bench->stream.read(std::chrono::milliseconds(30)).empty());
}

TEST_F(RawPath, AcknowledgesSetPointsUnlessNegotiatedOtherwise) {
    negotiate("01");
    cable->send(from_client(sim::FrameCode::command, set_point()));
    const Bytes bytes = cable->receive();
    const auto reply = sim::read_frame(bytes);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->code, sim::FrameCode::command);
    EXPECT_EQ(test::hex(Bytes(reply->payload.begin(), reply->payload.end())),
              "07 00 6D 00 00 00 00 ");
    ASSERT_EQ(bench->simulator.set_points().size(), 1U);
    EXPECT_EQ(bench->simulator.set_points()[0].sequence, 7U);
    EXPECT_EQ(bench->simulator.set_points()[0].port, sim::Port::raw);

    negotiate("03");
    cable->send(from_client(sim::FrameCode::command, set_point()));
    EXPECT_TRUE(bench->simulator.wait_for_set_points(2));
    EXPECT_FALSE(cable->arrives(std::chrono::milliseconds(50)));
}

TEST_F(RawPath, TakesInputsOfItsClientOnly) {
    negotiate("01");
    bench->io.ask("09 00 49 01 00 33 00 00 00");
    const Bytes input = test::bytes("06 00 55 01 34 12");
    const auto send = [&](const char* fault) {
        cable->send(from_client(sim::FrameCode::input, input, sim::parse_fault(fault)));
    };
    send("source=02:00:00:00:00:0c");
    send("altered");
    send("payload=200");
    cable->send(from_client(sim::FrameCode::command, input));
    send("");
    EXPECT_TRUE(bench->simulator.wait_for_inputs(1));
    EXPECT_EQ(test::hex(bench->simulator.input("step")), "34 12 ");
    EXPECT_EQ(bench->simulator.counters().inputs, 1U);
    EXPECT_EQ(bench->simulator.counters().frames_rejected, 4U);
}

TEST_F(RawPath, MeetsFaultsOfItsFrames) {
    negotiate("01");
    for (const char* fault :
         {"package,lost", "package,doubled", "package,altered", "package,tagged",
          "package,source=02:00:00:00:00:0c", "package,payload=1400", "package,size=6"}) {
        inject(fault);
    }
    start();
    const Bytes first = cable->receive();
    EXPECT_EQ(cable->receive(), first) << "doubled";
    EXPECT_FALSE(sim::read_frame(cable->receive())) << "altered";
    EXPECT_TRUE(sim::read_frame(cable->receive())) << "the system takes the tag off";
    const Bytes foreign = cable->receive();
    EXPECT_EQ(foreign.at(11), 0x0C);
    const Bytes lying = cable->receive();
    EXPECT_EQ(test::hex(Bytes(lying.begin() + 22, lying.begin() + 24)), "78 05 ");
    const Bytes cut = cable->receive();
    EXPECT_EQ(test::hex(Bytes(cut.begin() + 26, cut.end())), "06 00 55 01 04 03 ");
    EXPECT_EQ(bench->simulator.counters().packages_dropped, 1U);
}

TEST_F(RawPath, ServesSeveralControllersOnOneInterface) {
    sim::Options options = raw_options();
    options.address = test::own_loopback(2);
    options.mac = sim::MacAddress{2, 0, 0, 0, 0, 0x0D};
    const sim::Simulator second(options);
    test::Peer io(options.address, sim::Port::io);
    EXPECT_EQ(io.ask("11 00 56 03 00 01 00 00 00 00 00 " + std::string(client_mac)),
              "0D 00 56 00 00 00 00 02 00 00 00 00 0D ");
    negotiate("01");
    cable->send(from_client(sim::FrameCode::command, set_point()));
    ASSERT_TRUE(bench->simulator.wait_for_set_points(1));
    EXPECT_EQ(sim::read_frame(cable->receive()).value().sequence, 0);
    EXPECT_FALSE(cable->arrives(std::chrono::milliseconds(50))) << "from the other controller";
    EXPECT_EQ(second.counters().requests, 1U);
}

TEST(RawPathWithout, AnInterfaceSaysSo) {
    sim::Options options;
    options.address = test::own_loopback();
    options.interface = "no-such-if";
    try {
        const sim::Simulator simulator(options);
        FAIL();
    } catch (const std::system_error& error) {
        EXPECT_NE(std::string(error.what()).find("no-such-if"), std::string::npos);
    }
}
