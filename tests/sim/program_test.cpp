// vexo-sim as a process, and the catalogue that it reads and writes.
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <set>

#include "tests/sim/peer.h"
#include "tests/support/program.h"

using test::own_loopback;
using test::Program;

TEST(Program, ServesAndTakesCommandsUntilItIsToldToEnd) {
    const std::string first = own_loopback(7);
    const std::string second = own_loopback(8);
    std::ofstream("commands") << "type=v,status=9\n" + second + " refuse forever port=stream\n"
                              << "fault nonsense\nclear 1\n"
                              << own_loopback(9) << " clear\nstatus\n";
    Program program({"/bin/sh", "-c",
                     "exec " VEXO_SIM " --stdin -a " + first +
                         " -n 2 -r 100 --digital-inputs 0x5 --error 3 -f method=servoJ,lost "
                         "<commands"});
    const std::string none =
        ": 0 connections, 0 requests (0 refused), 0 set-points, 0 inputs, 0 packages sent, 0 "
        "dropped, 0 frames rejected\n";
    const std::string answers =
        "vexo-sim: ready on " + first + " " + second + " at 100 Hz\nok\nok\n" +
        "error: fault: there is no item \"nonsense\"\nerror: fault: there is no item \"clear\"\n" +
        "error: no controller is on " + own_loopback(9) + "\nvexo-sim: " + first + none +
        "vexo-sim: " + second + none + "ok\n";
    EXPECT_TRUE(test::wait_until([&] { return program.output() == answers; })) << program.output();
    for (const std::string& address : {first, second}) {
        const test::Peer io(address, sim::Port::io);
        EXPECT_EQ(io.ask("03 00 76"), "07 00 76 09 00 00 00 ");
        EXPECT_EQ(test::Peer(address, sim::Port::stream).connected(), address == first);
    }
    EXPECT_EQ(program.status(SIGTERM), 0);
    EXPECT_NE(program.output().find(second + ": 1 connections, 1 requests (1 refused)"),
              std::string::npos);
}

TEST(Program, SaysWhyItCannotServe) {
    sim::Options options;
    options.address = own_loopback();
    const sim::Simulator simulator(options);
    Program taken({VEXO_SIM, "--address", own_loopback()});
    EXPECT_EQ(taken.status(), 1);
    EXPECT_EQ(taken.output(),
              "vexo-sim: cannot listen on " + own_loopback() + ":2295: Address already in use\n");
    Program fault({VEXO_SIM, "--address", own_loopback(2), "--fault", "times=x"});
    EXPECT_EQ(fault.status(), 1);
    EXPECT_EQ(fault.output(), "vexo-sim: fault: \"times=x\": write times=N or always\n");
    Program option({VEXO_SIM, "--rate", "2000"});
    EXPECT_NE(option.status(), 0);
    for (const auto& [json, expected] :
         {std::pair("{", "parse error"), std::pair(R"({"outputs": 3})", "outputs is not a list"),
          std::pair(R"({"methods": [{"name": "a", "id": 65536}]})", "a needs \"id\"")}) {
        std::ofstream("catalogue.json") << json;
        Program catalogue(
            {VEXO_SIM, "--address", own_loopback(2), "--catalogue", "catalogue.json"});
        EXPECT_EQ(catalogue.status(), 1);
        EXPECT_NE(catalogue.output().find(expected), std::string::npos) << catalogue.output();
    }
}

TEST(Program, PrintsACatalogueOfAllTypesThatItCanRead) {
    Program print({VEXO_SIM, "--print-catalogue"});
    ASSERT_EQ(print.status(), 0);
    const sim::Catalogue all = sim::Catalogue::from_json(print.output());
    EXPECT_EQ(all.to_json(), print.output());
    for (const auto& list : {all.outputs, all.inputs}) {
        std::set<sim::Type> types;
        for (const sim::Variable& variable : list) {
            types.insert(variable.type);
        }
        EXPECT_EQ(types.size(), 19U);
    }
    std::ofstream("catalogue.json") << print.output();
    Program serve({VEXO_SIM, "--address", own_loopback(), "--catalogue", "catalogue.json"});
    ASSERT_TRUE(serve.ready());
    EXPECT_EQ(serve.status(SIGTERM), 0);
}

TEST(Program, PrintsTheFaultsAsTheyAreDocumented) {
    Program print({VEXO_SIM, "--print-faults"});
    ASSERT_EQ(print.status(), 0);
    EXPECT_NE(test::read_file(DOCUMENTATION).find(print.output()), std::string::npos)
        << "put it in place of the table in docs/simulator.md:\n"
        << print.output();
}
