// A client connected to a scripted controller.
#ifndef TESTS_CLIENT_CLIENT_FIXTURE_H
#define TESTS_CLIENT_CLIENT_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "client/vexo.h"
#include "tests/support/dataspace.h"
#include "tests/support/log_files.h"
#include "tests/support/scripted_peer.h"

namespace test {

// A controller whose three ports follow scripts, and a handle for it.
struct Session {
    explicit Session(int number = 1)
        : address(own_loopback(number)),
          io(address, 2295),
          control(address, 2297),
          receive(address, 2299) {
        EXPECT_EQ(vexo_create_handle(&handle, address.c_str()), 0);
    }

    void connect(int64_t mode = 2) {
        ASSERT_EQ(vexo_create(handle, address.c_str(), nullptr, mode, nullptr), 0);
    }

    // Connects and negotiates.
    void negotiate(int64_t mode) {
        connect(mode);
        io.expect(bytes("0B 00 56") + Bytes{static_cast<uint8_t>(mode), 0, 0, 0, 0, 0, 0, 0},
                  bytes("07 00 56 00 00 00 00"));
        ASSERT_EQ(vexo_protocol_version_request(handle, mode, 0), 0);
    }

    void start() {
        io.expect(bytes("03 00 53"), bytes("07 00 53 00 00 00 00"));
        ASSERT_EQ(vexo_output_start(handle, 0), 0);
    }
    void pause() {
        io.expect(bytes("03 00 50"), bytes("07 00 50 00 00 00 00"));
        ASSERT_EQ(vexo_output_pause(handle, 0), 0);
    }

    uint8_t* dataspace() const { return get_vexo_dataspace(handle); }
    uint32_t member(size_t offset) const { return read_u32(dataspace() + offset); }

    // The log files' names for this handle; the log must be started, and is ended by this.
    std::string log() const { return finished_log(address); }

    static std::string finished_log(const std::string& key) {
        log_cleanup();
        return read_file(file_of(key));
    }

    std::string address;
    ScriptedPeer io;
    ScriptedPeer control;
    ScriptedPeer receive;
    uint32_t handle = 0;
};

}  // namespace test

#endif
