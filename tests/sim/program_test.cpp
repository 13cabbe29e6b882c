// vexo-sim as a process.
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>

#include "tests/sim/peer.h"
#include "tests/support/process.h"
#include "tests/support/program.h"

using test::own_loopback;
using test::Program;

TEST(Program, ServesUntilItIsToldToEnd) {
    for (const int signal : {SIGTERM, SIGINT}) {
        Program program({VEXO_SIM, "--address", own_loopback(7), "--count", "2", "--rate", "100",
                         "--digital-inputs", "0x5", "--error", "3", "--fault",
                         "type=v,status=9,times=always"});
        ASSERT_TRUE(program.ready());
        EXPECT_EQ(program.output(),
                  "vexo-sim: ready on " + own_loopback(7) + " " + own_loopback(8) + " at 100 Hz\n");
        for (const int number : {7, 8}) {
            test::Peer io(own_loopback(number), sim::Port::io);
            EXPECT_EQ(io.ask("03 00 76"), "07 00 76 09 00 00 00 ");
        }
        EXPECT_EQ(program.status(signal), 0);
        const std::string summary =
            ": 1 connections, 1 requests (1 refused), 0 set-points, 0 inputs, 0 packages sent, "
            "0 dropped, 0 frames rejected\n";
        EXPECT_NE(program.output().find("vexo-sim: " + own_loopback(7) + summary),
                  std::string::npos)
            << program.output();
        EXPECT_NE(program.output().find("vexo-sim: " + own_loopback(8) + summary),
                  std::string::npos);
    }
}

TEST(Program, SaysWhyItCannotServe) {
    sim::Options options;
    options.address = own_loopback();
    const sim::Simulator simulator(options);
    Program taken({VEXO_SIM, "--address", own_loopback()});
    EXPECT_EQ(taken.status(), 1);
    EXPECT_EQ(taken.output(),
              "vexo-sim: cannot listen on " + own_loopback() + ":2295: Address already in use\n");
    Program fault({VEXO_SIM, "--address", own_loopback(2), "--fault", "nonsense"});
    EXPECT_EQ(fault.status(), 1);
    EXPECT_EQ(fault.output(), "vexo-sim: fault: there is no item \"nonsense\"\n");
    Program option({VEXO_SIM, "--rate", "2000"});
    EXPECT_NE(option.status(), 0);
}

TEST(Program, PrintsACatalogueThatItCanRead) {
    Program print({VEXO_SIM, "--print-catalogue"});
    ASSERT_EQ(print.status(), 0);
    const std::string text = print.output();
    EXPECT_EQ(text, sim::Catalogue::built_in().to_json());
    std::ofstream("catalogue.json") << text;
    Program serve({VEXO_SIM, "--address", own_loopback(), "--catalogue", "catalogue.json"});
    ASSERT_TRUE(serve.ready());
    EXPECT_EQ(serve.status(SIGTERM), 0);
}
